#ifndef QKMEM_PROFILE_NOTES_H_
#define QKMEM_PROFILE_NOTES_H_

#include <cstdint>
#include <optional>

#include "core/records.h"
#include "history/freed_blocks.h"
#include "profile/address_table.h"
#include "profile/pool.h"
#include "profile/site.h"

/**
 * What the profile is told of memory on watched handles: each record that is written or released,
 * and memory without a record. Whoever writes a record into a slot of a watched handle notes it,
 * also if it belongs to no site: a mark that is left from an earlier record would be taken for its.
 *
 * The caller holds the lock of the handle, except with site_of().
 */
namespace qk::mem::profile {

/** A record's place: a slot of one of the handle's arrays. */
struct SlotPlace {
  qk_mem_ptr_array& array;
  std::int32_t index;
};

/**
 * The site of an allocation of so many bytes: the caller's place, stack and label. To be called
 * before any lock is taken, since an unwinder can wait for the dynamic linker.
 *
 * @param file  the name alone.
 * @param entry  where the program has called the library, if that is known: a return address.
 * @return null if new allocations are not booked, or not this one, since it is not in the sample.
 */
[[nodiscard]] Site* site_of(const qk_mem_handle& handle, const char* file, int line,
                            std::uint64_t bytes, const void* entry = nullptr);

/** The same of a place without a stack or a label, while nothing needs attention. Never null. */
[[nodiscard]] Site* site_of_place(Pool& pool, const char* file, int line);

/** A record was written into a slot. Its site can be null: it has none. */
void note_made(qk_mem_handle& handle, SlotPlace place, const Origin& origin);

/** The same of a record that malloc or the like has written, where something is not usual. */
void note_made_unusually(qk_mem_handle& handle, SlotPlace place, const Origin& origin);

/** Whether a block can't be released without its mark, since its address isn't the allocator's. */
[[nodiscard]] inline bool needs_mark(const Origin& origin) {
  return (origin.flags & Mark::kGuardedInFront) != 0;
}

/** Whether there is room for the marks of all slots of an array. */
[[nodiscard]] bool has_room_for_marks(qk_mem_handle& handle, const qk_mem_ptr_array& array);

/** The mark of the record in a slot, if it has one. */
[[nodiscard]] Mark mark_in(const qk_mem_handle& handle, SlotPlace place);

/** The record in a slot will be released next. */
void note_gone(qk_mem_handle& handle, SlotPlace place, const history::Release& release);

/**
 * The same where every call may release the record; otherwise, and when nothing is noted any more,
 * it returns false, and nothing has changed.
 */
[[nodiscard]] bool note_gone_unusually(qk_mem_handle& handle, SlotPlace place,
                                       const history::Release& release);

/** The same for a realloc: its event is counted when the memory is recorded again. */
void note_set_aside(qk_mem_handle& handle, SlotPlace place, const history::Release& release);

/** A record that was set aside is back in its slot. */
void note_back(qk_mem_handle& handle, SlotPlace place);

/** The record in a slot was live before the profile was on. Does nothing if it is booked. */
void note_from_before(qk_mem_handle& handle, SlotPlace place);

/** Memory was allocated that the core does not record. False if the profile can't follow it. */
bool note_unrecorded(qk_mem_handle& handle, const void* address, std::uint64_t bytes,
                     const Origin& origin);

/**
 * The same for a piece of a block, which stays until the handle is cleared. It is followed only if
 * it has a guard.
 */
void note_piece(qk_mem_handle& handle, const void* address, std::uint64_t bytes,
                const Origin& origin);

/**
 * Memory without a record will be released. Returns what was known of it. It is remembered if
 * `release` has a path.
 */
std::optional<Unrecorded> note_unrecorded_gone(qk_mem_handle& handle, const void* address,
                                               const history::Release& release);

/** The same for a realloc. Returns what is known of the memory. */
[[nodiscard]] std::optional<Unrecorded> note_unrecorded_set_aside(qk_mem_handle& handle,
                                                                  const void* address,
                                                                  const history::Release& release);

/** Memory that was set aside could not be resized. */
void note_unrecorded_back(qk_mem_handle& handle, const Unrecorded& memory);

/** The handle has no memory any more: it was cleared. */
void note_all_gone(qk_mem_handle& handle);

/**
 * The blocks of a handle are empty from now on. Other threads can have taken pieces that were noted
 * before, or will be: their guards are not expected to last.
 */
void note_blocks_empty(qk_mem_handle& handle);

/** Which pieces of a handle, if it is watched, are taken between two clears. */
[[nodiscard]] inline std::uint32_t era_of(const qk_mem_handle& handle) {
  return is_watched(handle) ? pool_of(handle).era : 0;
}

/** Counts what the handle's sites have made and what was highest anew. */
void note_reset(qk_mem_handle& handle);

/** The handle is deleted, after all its memory. */
void note_deleted(qk_mem_handle& handle);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_NOTES_H_
