#include "report/growth.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "support/format.h"

namespace qk::mem {

LocationText::LocationText(const char* file, int line) {
  std::snprintf(text_, sizeof text_, "%s:%d", file, line);
}

}  // namespace qk::mem

extern "C" char* qk_mem_growth_string(unsigned long base, unsigned long current, char* buf) {
  if (base == 0) return std::strcpy(buf, "  n/a      n/a");
  const auto difference = static_cast<std::int64_t>(current - base);
  const double percent = static_cast<double>(difference) * 100.0 / static_cast<double>(base);
  const auto amount = static_cast<std::size_t>(difference);
  if (percent < 10.0) {
    qk_sprintf(buf, "%5.2f%%%9zu", percent, amount);
  } else {
    qk_sprintf(buf, "%5.0f%%%9zu", percent, amount);
  }
  return buf;
}
