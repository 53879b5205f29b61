#include "core/handle_array.h"

#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"
#include "diag/log.h"
#include "handle/warnings.h"
#include "table/lookup.h"
#include "table/pointer_table.h"

namespace qk::mem {
namespace {

/** Releases the old array and its record; false when it had none. */
bool release_old_array(qk_mem_handle& overhead, qk_mem_handle** array, const Site& site)
    QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  release_handle_array(array);
  const auto taken = take_pointer(overhead, array, Totals::kOverhead);
  if (!taken) {
    if (reports(site)) warn_handle_array_not_found(site, array);
    return false;
  }
  next_seq();
  announce_released(lines::kHandleArrayFreed, site, QK_MEM_OVERHEAD_HANDLE, event::kFree,
                    taken->record, release_of(taken->record));
  return true;
}

void record_new_array(qk_mem_handle& overhead, qk_mem_handle** array, const Site& site) {
  const auto slots = static_cast<std::uint64_t>(Qk_mem_avail_handles);
  const auto record = record_pointer(overhead, array, kind::kHandleMemory,
                                     {slots, sizeof(qk_mem_handle*)}, site, Totals::kOverhead);
  if (!record) return;
  announce_made(lines::kHandleArrayMade, site, QK_MEM_OVERHEAD_HANDLE, *record, gain_of(*record),
                Located::kByCaller);
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_handle_array(qk_mem_handle** old_array, qk_mem_handle** new_array,
                                    const char* file, int line, qk_mem_debug* debug) {
  using namespace qk::mem;
  assert_registry_held();
  const Site caller(debug->routine, file, line, *debug);
  qk_mem_handle* overhead = open_handle(QK_MEM_OVERHEAD_HANDLE, caller);
  if (overhead == nullptr) {
    if (old_array != nullptr) release_handle_array(old_array);
    return;
  }
  const Site site = caller.as("qk_mem_handle_array");
  if (old_array != nullptr && !release_old_array(*overhead, old_array, site)) return;
  if (new_array != nullptr) record_new_array(*overhead, new_array, site);
}
