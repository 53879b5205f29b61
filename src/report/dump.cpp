// The report, as a whole.
#include "core/kinds.h"
#include "core/switches.h"
#include "core/upcalls.h"
#include "diag/log.h"
#include "report/report.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

void print_heapsize(const Report& report) {
  qk_mem_fprintf(report.stream, "Current heapsize:  %10zd\n", report.heap);
}

/** Without a configuration there are no records to report. */
void print_unavailable(const Report& report) {
  if (report.sections == QK_MEM_DUMP_HEAPSIZE) {
    print_heapsize(report);
  } else {
    qk_mem_fprintf(report.stream, "QK_MEM_DEBUG must be set to see memory information\n");
  }
}

bool is_new_data(const qk_mem_ptr& record, const qk_mem_filters& filters) {
  return !is_management(record.kind) && !qk_mem_filter_pointer(&record, &filters) &&
         record.baselined == 0;
}

bool has_new_data(const qk_mem_handle& handle, const qk_mem_filters& filters) {
  assert_registry_held();
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t i = 0; i < slots; ++i) {
      if (address_in(array.ptrs[i]) != nullptr && is_new_data(read_slot(array.ptrs[i]), filters)) {
        return true;
      }
    }
  }
  return false;
}

void print_whole(const Report& report) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (report.has(QK_MEM_DUMP_COMPARISON)) {
    print_comparison(report);
    return;
  }
  if (report.has(QK_MEM_DUMP_SUMMARY)) {
    print_summary(report);
  } else if (report.has(QK_MEM_DUMP_HEAPSIZE)) {
    print_heapsize(report);
  }
  print_details(report);
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

}  // namespace qk::mem

extern "C" void qk_mem_dump(FILE* fp, const char* filter, unsigned int opts) {
  using namespace qk::mem;
  ensure_started();
  const RegistryLock lock;
  if (fp == nullptr) return;
  Report report = {fp, {}, opts != 0 ? opts : qk::load(Qk_mem_dump_opts), qk_heapsize()};
  if (!tracing()) {
    print_unavailable(report);
    return;
  }
  if (qk_mem_init_filters(filter, &report.filters) != 0) {
    qk_mem_fprintf(fp, "\"%s\" are not legal filters\n", filter);
    return;
  }
  if (report.has(QK_MEM_DUMP_GROWTH) && !find_growth(report)) {
    if (!report.has(QK_MEM_DUMP_TERSE)) qk_mem_fprintf(fp, "No memory growth since baseline\n");
    return;
  }
  print_whole(report);
}

namespace qk::mem {

void dump_to_log() {
  const RegistryLock lock;
  qk_mem_dump(Qk_mem_log, "", 0);
}

void dump_control_blocks(const qk_mem_debug& switches) {
  if (dumps(switches)) dump_to_log();
}

}  // namespace qk::mem
