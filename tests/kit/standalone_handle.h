#ifndef TESTS_KIT_STANDALONE_HANDLE_H_
#define TESTS_KIT_STANDALONE_HANDLE_H_

#include <cstdint>
#include <string>

#include "core/records.h"

namespace kit {

/** An address that is never dereferenced. Bits 4 to 6 choose the pointer array. */
[[nodiscard]] void* at(std::uintptr_t address);

/**
 * A handle that the library doesn't know, for tests of its pointer table. All fields are zero
 * except its number and its tag, which no other handle has. The destructor frees its arrays only.
 */
class StandaloneHandle {
 public:
  explicit StandaloneHandle(int id = 7);
  StandaloneHandle(const StandaloneHandle&) = delete;
  StandaloneHandle& operator=(const StandaloneHandle&) = delete;
  ~StandaloneHandle();

  operator qk_mem_handle*() { return &record; }  // NOLINT: it stands for its record
  qk_mem_handle* operator->() { return &record; }

  /** "data 2 for 150, overhead 1 for 768, tag 2 for 150" */
  [[nodiscard]] std::string sums() const;

  /** One of its pointer arrays: "16 slots, 3 used", or "80 slots, 16 used, no memory". */
  [[nodiscard]] std::string array(int index = 0) const;

  qk_mem_handle record = {};
  qk_mem_tag tag = {};
};

}  // namespace kit

#endif  // TESTS_KIT_STANDALONE_HANDLE_H_
