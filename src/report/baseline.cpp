// Baselines, which reports compare with.
#include "core/handle_array.h"
#include "core/switches.h"
#include "core/tag_shares.h"
#include "core/upcalls.h"
#include "diag/log.h"
#include "report/filters.h"
#include "report/report.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

constexpr const char* kRoutine = names_of(Routine::kBaseline).logged;

void log_start(const char* filter, bool logged) {
  if (!logged) return;
  const bool filtered = filter != nullptr && *filter != '\0';
  qk_mem_write_log("   %s:     Baselines will be set%s%s\n", kRoutine, filtered ? " where " : "",
                   filtered ? filter : "");
}

/**
 * Marks all live records, including the arrays' own. A record that another thread makes meanwhile
 * may be marked or not.
 */
void mark_records(qk_mem_handle& handle) {
  assert_registry_held();
  for (qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t i = 0; i < slots; ++i) {
      if (address_in(array.ptrs[i]) != nullptr) add_marks(array.ptrs[i], kBaselined);
    }
  }
}

void take_handle(qk_mem_handle& handle, bool logged) {
  handle.base_amount = qk::load(handle.amount);
  handle.base_qty = qk::load(handle.qty);
  handle.base_overhead_amount = qk::load(handle.overhead_amount);
  handle.base_overhead_qty = qk::load(handle.overhead_qty);
  if (logged) {
    qk_mem_write_log("   %s:     %3d    base_qty: %7u  base_amt: %10zu\n", kRoutine, handle.id,
                     handle.base_qty, handle.base_amount);
  }
  handle.baselined = 1;
  mark_records(handle);
}

void take_tag(qk_mem_tag& tag) {
  tag.base_amount = qk::load(tag.amount);
  tag.base_qty = qk::load(tag.qty);
}

void take_tags(const qk_mem_filters& filters, bool logged) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  fold_tag_shares();
  for_each_tag([&](qk_mem_tag& tag) {
    if (qk_mem_filter_tag(&tag, &filters)) return;
    take_tag(tag);
    if (!logged) return;
    qk_mem_write_log("   %s:     %2s     base_qty: %7u  base_amt: %10zu\n", kRoutine, tag.name,
                     tag.base_qty, tag.base_amount);
  });
  if (qk_mem_filter_tag(&Qk_mem_global_tag, &filters)) return;
  take_tag(Qk_mem_global_tag);
  if (!logged) return;
  qk_mem_write_log("   %s:     %4s   base_qty: %7u  base_amt: %10zu\n", kRoutine, "NONE",
                   Qk_mem_global_tag.base_qty, Qk_mem_global_tag.base_amount);
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_baseline(const char* filter) {
  using namespace qk::mem;
  const RegistryLock lock;
  ensure_started();
  if (!has_reports()) return -1;
  qk_mem_filters filters;
  if (qk_mem_init_filters(filter, &filters) != 0) return 0;
  const bool logged = logs_events(switches_of(Routine::kBaseline));
  log_start(filter, logged);
  for_each_handle([&](qk_mem_handle& handle) {
    if (!qk_mem_filter_handle(&handle, &filters)) take_handle(handle, logged);
  });
  take_tags(filters, logged);
  Qk_mem_base_heap = qk_heapsize();
  return 0;
}
