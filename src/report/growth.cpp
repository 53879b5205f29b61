#include "report/growth.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/kinds.h"
#include "report/report.h"
#include "support/format.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

bool is_new_data(const qk_mem_ptr& record, const qk_mem_filters& filters) {
  return !is_management(record.kind) && !qk_mem_filter_pointer(&record, &filters) &&
         record.baselined == 0;
}

bool has_new_data(const qk_mem_handle& handle, const qk_mem_filters& filters) {
  assert_registry_held();
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t i = 0; i < slots; ++i) {
      const auto record = record_of(array.ptrs[i]);
      if (record && is_new_data(*record, filters)) return true;
    }
  }
  return false;
}

}  // namespace

bool find_growth(const Report& report) {
  assert_registry_held();
  bool found = false;
  for_each_kept_handle(report, [&](qk_mem_handle& handle) {
    if (handle.baselined == 0) found = true;
    handle.has_growth = has_new_data(handle, report.filters) ? 1 : 0;
    if (handle.has_growth != 0) found = true;
  });
  return found;
}

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
