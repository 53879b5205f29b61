#ifndef QKMEM_DIAG_HEAP_H_
#define QKMEM_DIAG_HEAP_H_

#include <cstdint>

/** 1 while heap sizes follow the log lines of events. */
extern std::uint32_t Qk_mem_opts;

extern "C" {

/**
 * Writes what follows an event's line: " (heap change)", the heap's size and its change since the
 * text before, or nothing while HEAPSIZE is off.
 *
 * @param buf  at least 48 bytes.
 * @return buf
 */
char* qk_mem_heapsize_string(char* buf);

}  // extern "C"

namespace qk::mem {

/** The text of qk_mem_heapsize_string() for the time of one statement. */
class HeapText {
 public:
  HeapText() { qk_mem_heapsize_string(text_); }
  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  char text_[48];
};

}  // namespace qk::mem

#endif  // QKMEM_DIAG_HEAP_H_
