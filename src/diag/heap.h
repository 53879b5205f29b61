#ifndef QKMEM_DIAG_HEAP_H_
#define QKMEM_DIAG_HEAP_H_

#include <cstdint>

#include "core/registry.h"

/** 1 if heap sizes are appended to the log lines of events. */
[[gnu::visibility("hidden")]] extern std::uint32_t Qk_mem_opts;

extern "C" {

/**
 * Writes the heap's size and its change since the last call, as " (size change)", which is appended
 * to the line of an event. Writes "" while HEAPSIZE is off.
 *
 * @param buf  at least 48 bytes.
 *
 * @return buf
 */
char* qk_mem_heapsize_string(char* buf);

}  // extern "C"

namespace qk::mem {

/** The same as qk_heapsize(), for figures that are asked for with every event. */
[[nodiscard]] long heap_at_event() QK_REQUIRES(Qk_mem_mtx);

/** Holds the text of qk_mem_heapsize_string() for one statement. */
class HeapText {
 public:
  HeapText() { qk_mem_heapsize_string(text_); }
  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  char text_[48];
};

}  // namespace qk::mem

#endif  // QKMEM_DIAG_HEAP_H_
