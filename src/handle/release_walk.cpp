#include "handle/release_walk.h"

#include "accounting/walks.h"
#include "check/release.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"
#include "handle/repeats.h"
#include "profile/notes.h"
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

void release_object(const qk_mem_ptr& record, Walk& walk) {
  if (!is_repeat(record)) walk.note_object(record);
  destroy(record);
  walk.note_destroyed();
}

/** A record that was removed, and its mark. */
struct Visited {
  qk_mem_ptr record;
  profile::Mark mark;
};

void release_memory(const qk_mem_handle& handle, const Visited& visited, Walk& walk,
                    const CallContext& context) {
  const qk_mem_ptr& record = visited.record;
  if (walk.note_memory(record, visited.mark) || !is_system_memory(record.kind)) return;
  if (check::cares_for(handle, visited.mark)) {
    check::release(handle, record, visited.mark,
                   {context.path, context.line, history::Ending::kWithHandle});
  } else {
    user_memory::release(record.address);
  }
}

void release(const qk_mem_handle& handle, const Visited& visited, Walk& walk,
             const CallContext& context) {
  const qk_mem_ptr& record = visited.record;
  if (is_language_made(record.kind)) {
    release_object(record, walk);
  } else if (!is_management(record.kind) && !is_repeat(record)) {
    release_memory(handle, visited, walk, context);
  }
}

/**
 * Removes the record of a slot, unless the slot is free or the record is kept. The lock is held for
 * this slot only: between two slots run the allocator and the user's destructors.
 */
template <class IsVisited>
std::optional<Visited> take_visited(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                    std::int32_t index, const WalkRules& rules,
                                    IsVisited is_visited) {
  const HandleLock lock(handle);
  if (index >= slots_of(array)) return std::nullopt;
  const auto record = record_of(array.ptrs[index]);
  if (!record || rules.keeps(*record) || !is_visited(*record)) return std::nullopt;
  const profile::Mark mark =
      profile::is_watched(handle) ? profile::mark_in(handle, {array, index}) : profile::Mark{};
  remove_visited(handle, array, index);
  return Visited{*record, mark};
}

/** Releases the records that `is_visited` chooses. */
template <class IsVisited>
void release_some(qk_mem_handle& handle, const CallContext& context, WalkRules& rules, Walk& walk,
                  IsVisited is_visited) {
  for (qk_mem_ptr_array& array : handle.ptrs) {
    mark_repeats(handle, array);
    for (std::int32_t index = 1; index < slots_of(array); ++index) {
      const auto visited = take_visited(handle, array, index, rules, is_visited);
      if (!visited) continue;
      const qk_mem_ptr& record = visited->record;
      const unsigned char letter = rules.letter_of(record);
      rules.charge(record, letter);
      release(handle, *visited, walk, context);
      announce_released(lines::kReleasedInWalk, context, handle.id, letter, record,
                        letter == event::kFreePiece ? 0 : loss_of(record));
    }
  }
}

}  // namespace

void release_records(qk_mem_handle& handle, const CallContext& context, WalkRules& rules) {
  Walk walk(handle);
  if (walk.lacks_memory()) {
    // Objects go first then: their destructors find what they own in its place.
    release_some(handle, context, rules, walk,
                 [](const qk_mem_ptr& record) { return is_language_made(record.kind); });
  }
  release_some(handle, context, rules, walk, [](const qk_mem_ptr& /*record*/) { return true; });
}

}  // namespace qk::mem
