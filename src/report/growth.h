#ifndef QKMEM_REPORT_GROWTH_H_
#define QKMEM_REPORT_GROWTH_H_

#include <cstddef>

extern "C" {

/**
 * Writes how much a sum has grown, in per cent and in bytes, as report rows show it: 15 characters
 * unless the amount has more than nine digits. A decrease shows as the 64-bit complement of its
 * size.
 *
 * @param buf  64 bytes.
 * @return buf
 */
char* qk_mem_growth_string(unsigned long base, unsigned long current, char* buf);

}  // extern "C"

namespace qk::mem {

/** The text of qk_mem_growth_string() for the time of one statement. */
class GrowthText {
 public:
  GrowthText(unsigned long base, unsigned long current) {
    qk_mem_growth_string(base, current, text_);
  }
  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  char text_[64];
};

/** "file:line", cut to what any report row shows. */
class LocationText {
 public:
  LocationText(const char* file, int line);
  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  char text_[32];
};

}  // namespace qk::mem

#endif  // QKMEM_REPORT_GROWTH_H_
