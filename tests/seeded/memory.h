#ifndef TESTS_SEEDED_MEMORY_H_
#define TESTS_SEEDED_MEMORY_H_

#include <cstddef>

#include "qkmem/handle.hpp"

/** Memory for the caller's line. */
namespace seeded {

/** Allocates memory that the caller keeps. */
inline void* keep(const qk::On& on, std::size_t size) {
  return qk_mem_imalloc(on.number(), size, QK_MEM_ALIGNMENT, on.file(), on.line());
}

/** Memory for the time of a scope. */
class Buffer {
 public:
  Buffer(const qk::On& on, std::size_t size) : handle_(on.number()), memory_(keep(on, size)) {}
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  ~Buffer() { qk_mem_free(handle_, memory_); }

 private:
  int handle_;
  void* memory_;
};

}  // namespace seeded

#endif  // TESTS_SEEDED_MEMORY_H_
