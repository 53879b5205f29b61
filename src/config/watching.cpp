#include "config/watching.h"

#include "core/handle_array.h"
#include "core/roads.h"
#include "profile/notes.h"
#include "profile/pool.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** Books the records that are not booked yet. */
void note_present_records(qk_mem_handle& handle) {
  for (qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t index = 1; index < slots; ++index) {
      if (recorded_address(array.ptrs[index]) == nullptr) continue;
      profile::note_from_before(handle, {array, index});
    }
  }
}

/** The same for one handle, under its lock. */
void watch(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  const HandleLock lock(handle);
  if (!profile::is_watched(handle)) profile::watch_handle(handle);
  if (profile::is_watched(handle)) note_present_records(handle);
}

}  // namespace

void watch_all_handles() {
  assert_registry_held();
  for_each_handle(watch);
  settle_all_roads();
}

}  // namespace qk::mem
