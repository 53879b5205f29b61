#ifndef QKMEM_ALLOC_CHECKED_PATH_H_
#define QKMEM_ALLOC_CHECKED_PATH_H_

#include "alloc/fast_path.h"
#include "check/release.h"
#include "check/report/look.h"

/** The fast path of free where blocks have guards: as the other one, for blocks that are whole. */
namespace qk::mem {

/** Whether the blocks beside a slot are whole. */
[[nodiscard, gnu::always_inline]] inline bool has_whole_neighbours(const qk_mem_ptr_array& array,
                                                                   const profile::Marks& marks,
                                                                   std::int32_t index,
                                                                   const char* end) {
  bool are_whole = true;
  check::for_each_neighbour(
      array, marks, index, end,
      [&](std::int32_t /*beside*/, const char* guard, std::uint32_t bytes) __attribute__((
          always_inline)) { are_whole = are_whole && check::is_whole(guard, bytes); });
  return are_whole;
}

/**
 * Removes the record of a block in a small array in the usual case: it and its neighbours are whole.
 * Tells what is known of it. In other cases nothing has changed.
 */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool remove_checked_fast(qk_mem_handle& handle,
                                                                  const void* ptr, const char* path,
                                                                  int line,
                                                                  check::BlockFacts& facts) {
  const auto remove = [&](qk_mem_ptr_array & array, std::int32_t index, bool single_threaded)
      __attribute__((always_inline)) {
    profile::Marks& marks = profile::marks_of(handle, profile::pool_of(handle), array);
    if (!marks.has(index)) [[unlikely]]
      return false;
    const profile::Mark mark = marks.at(index);
    const std::uint64_t bytes = bytes_in(array.ptrs[index]);
    const check::Layout layout = check::layout_of(mark);
    const char* const end = check::guard_behind(ptr, bytes);
    if (!check::is_whole(end, layout.behind) || !has_whole_neighbours(array, marks, index, end))
        [[unlikely]] {
      return false;
    }
    facts = check::facts_of(handle, array.ptrs[index], mark);
    facts.released_path = path;
    facts.released_line = line;
    if (!profile::quick_note_checked_gone(handle, {array, index}, mark, bytes,
                                          {path, line, history::Ending::kFreed},
                                          facts.released_event, single_threaded)) [[unlikely]] {
      return false;
    }
    remove_from_small(handle, array, index, bytes, ChargedTo::kData, single_threaded);
    qk::add_only(Qk_mem_seq, 1, single_threaded);
    return true;
  };
  return change_slot_of<QuickLock<typename Handling::Lock>>(handle, ptr, find_slot_in_small,
                                                            remove) != kNoSlot;
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_CHECKED_PATH_H_
