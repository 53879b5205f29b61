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

/** Whether a block is not booked, and has a guard behind it or none. */
[[nodiscard]] inline bool is_usual(profile::Mark mark) {
  return (mark.flags() & ~profile::Mark::kGuarded) == profile::Mark::kUnbooked;
}

/** What the record of a block has said that is removed. */
struct CheckedBlock {
  std::uint64_t bytes;
  profile::Mark mark;
  const char* file;
  std::uint32_t line;
  std::uint64_t released_event;
};

/**
 * Removes the record of a block in the usual case: it and its neighbours are whole. Tells what is
 * known of it. In other cases nothing has changed. `Lock`, `find` and `remove_found` are as of the
 * other fast paths.
 */
template <class Lock, class Find, class RemoveFound>
[[nodiscard, gnu::always_inline]] inline bool remove_checked_by(qk_mem_handle& handle,
                                                                const void* ptr, const char* path,
                                                                int line, CheckedBlock& block,
                                                                Find find,
                                                                RemoveFound remove_found) {
  const auto remove = [&](qk_mem_ptr_array & array, std::int32_t index, bool single_threaded)
      __attribute__((always_inline)) {
    profile::Marks& marks = profile::marks_of(handle, profile::pool_of(handle), array);
    if (!marks.has(index)) [[unlikely]]
      return false;
    const profile::Mark mark = marks.at(index);
    if (!is_usual(mark)) [[unlikely]]
      return false;
    const std::uint64_t bytes = bytes_in(array.ptrs[index]);
    const char* const end = check::guard_behind(ptr, bytes);
    if (!check::is_whole(end, check::bytes_behind(mark)) ||
        !has_whole_neighbours(array, marks, index, end)) [[unlikely]] {
      return false;
    }
    block.bytes = bytes;
    block.mark = mark;
    block.file = qk::load(array.ptrs[index].file);
    block.line = qk::load(array.ptrs[index].line);
    if (!profile::quick_note_checked_gone(handle, ptr, mark, bytes,
                                          {path, line, history::Ending::kFreed},
                                          block.released_event, single_threaded)) [[unlikely]] {
      return false;
    }
    remove_found(array, index, bytes, single_threaded);
    qk::add_only(Qk_mem_seq, 1, single_threaded);
    return true;
  };
  return change_slot_of<Lock>(handle, ptr, find, remove) != kNoSlot;
}

/** The same of a small array. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool remove_checked_from_small(qk_mem_handle& handle,
                                                                        const void* ptr,
                                                                        const char* path, int line,
                                                                        CheckedBlock& block) {
  return remove_checked_by<QuickLock<typename Handling::Lock>>(
      handle, ptr, path, line, block, find_slot_in_small,
      [&](qk_mem_ptr_array & array, std::int32_t index, std::uint64_t bytes, bool single_threaded)
          __attribute__((always_inline)) {
            remove_from_small(handle, array, index, bytes, ChargedTo::kData, single_threaded);
          });
}

/** The same of any array. */
template <class Handling>
[[nodiscard, gnu::noinline]] bool remove_checked(qk_mem_handle& handle, const void* ptr,
                                                 const char* path, int line, CheckedBlock& block) {
  return remove_checked_by<typename Handling::Lock>(
      handle, ptr, path, line, block, find_slot_of_data,
      [&](qk_mem_ptr_array& array, std::int32_t index, std::uint64_t /*bytes*/,
          bool single_threaded) {
        remove_record(handle, array, index, ChargedTo::kData, single_threaded);
      });
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_CHECKED_PATH_H_
