#include "handle/release_walk.h"

#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"
#include "handle/repeats.h"
#include "support/system_memory.h"
#include "table/pointer_table.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/**
 * Destroys an object through its tracker. If an earlier record has destroyed the object already,
 * only the second tracker is deleted.
 */
void destroy(const qk_mem_ptr& record) {
  if (record.tracker == nullptr || has_tracker_of_earlier(record)) return;
  if (is_repeat(record)) record.tracker->address = nullptr;
  delete record.tracker;
}

void release_memory(const qk_mem_ptr& record) {
  if (is_language_made(record.kind)) {
    destroy(record);
  } else if (is_system_memory(record.kind) && !is_repeat(record)) {
    user_memory::release(record.address);
  }
}

/**
 * Removes the record of a slot, unless the slot is free or the record is kept. The lock is held for
 * this slot only: between two slots run the allocator and the user's destructors.
 */
std::optional<qk_mem_ptr> take_visited(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                       std::int32_t index, const WalkRules& rules) {
  const HandleLock lock(handle);
  if (index >= slots_of(array)) return std::nullopt;
  const auto record = record_of(array.ptrs[index]);
  if (!record || rules.keeps(*record)) return std::nullopt;
  remove_visited(handle, array, index);
  return record;
}

}  // namespace

void release_records(qk_mem_handle& handle, const CallContext& context, WalkRules& rules) {
  for (qk_mem_ptr_array& array : handle.ptrs) {
    mark_repeats(handle, array);
    for (std::int32_t index = 1; index < slots_of(array); ++index) {
      const auto record = take_visited(handle, array, index, rules);
      if (!record) continue;
      const unsigned char letter = rules.letter_of(*record);
      rules.charge(*record, letter);
      release_memory(*record);
      announce_released(lines::kReleasedInWalk, context, handle.id, letter, *record,
                        letter == event::kFreePiece ? 0 : loss_of(*record));
    }
  }
}

}  // namespace qk::mem
