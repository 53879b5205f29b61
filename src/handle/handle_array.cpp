// Recording of the handle array, on handle 1.
#include "core/handle_array.h"

#include "accounting/handle_lookup.h"
#include "accounting/recording.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"

namespace qk::mem {
namespace {

/** Releases the old array and its record. False if it had none. */
bool release_old_array(qk_mem_handle& overhead, qk_mem_handle** array, const CallContext& context)
    QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  release_handle_array(array);
  const auto removed = remove_pointer(overhead, array, Removal::kByKind);
  if (!removed) {
    if (logs_errors(context)) warn_handle_array_not_found(context, array);
    return false;
  }
  next_seq();
  announce_released(lines::kHandleArrayFreed, context, QK_MEM_OVERHEAD_HANDLE, event::kFree,
                    removed->record, loss_of(removed->record));
  return true;
}

void record_new_array(qk_mem_handle& overhead, qk_mem_handle** array, const CallContext& context) {
  const auto slots = static_cast<std::uint64_t>(Qk_mem_avail_handles);
  const auto record = record_pointer(overhead, array, kind::kHandleMemory,
                                     {slots, sizeof(qk_mem_handle*)}, context);
  if (!record) return;
  announce_recorded(lines::kHandleArrayMade, context, QK_MEM_OVERHEAD_HANDLE, *record,
                    gain_of(*record), RowLine::kOfCaller);
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_handle_array(qk_mem_handle** old_array, qk_mem_handle** new_array,
                                    const char* file, int line, qk_mem_debug* debug) {
  using namespace qk::mem;
  assert_registry_held();
  const CallContext caller(debug->routine, file, line, *debug);
  qk_mem_handle* overhead = look_up_handle(QK_MEM_OVERHEAD_HANDLE, caller);
  if (overhead == nullptr) {
    if (old_array != nullptr) release_handle_array(old_array);
    return;
  }
  const CallContext context = caller.as("qk_mem_handle_array");
  if (old_array != nullptr && !release_old_array(*overhead, old_array, context)) return;
  if (new_array != nullptr) record_new_array(*overhead, new_array, context);
}
