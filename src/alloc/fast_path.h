#ifndef QKMEM_ALLOC_FAST_PATH_H_
#define QKMEM_ALLOC_FAST_PATH_H_

#include <cstdint>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/roads.h"
#include "support/known_paths.h"
#include "table/pointer_table.h"
#include "table/record_steps.h"

/**
 * The fast path of malloc, calloc, realloc and free: nothing observes the routine and the handle
 * needs no special care. It takes the steps of the slow path and leaves the same records and sums,
 * without a call context, a copy of the record, or a formatted line. On anything unusual it
 * falls back to the slow path.
 */
namespace qk::mem {

/** The same check as bypasses_tracking(), made first. Never true before the start-up is over. */
[[nodiscard]] inline bool bypasses_tracking_fast(int hid) {
  return hid == QK_MEM_DATA_HANDLE && qk::load(data_handle_is_bypassed) != 0;
}

/** Takes the place of HandleLock on handles without a mutex. */
struct NoLock {
  explicit NoLock(const qk_mem_handle& /*handle*/) {}
};

/**
 * Calls `f` with the handle of a number and the type of lock that it needs, if the calls of a
 * routine on it record and do nothing else. Otherwise calls `slow`.
 */
template <class Call, class SlowCall>
[[gnu::always_inline]] inline auto on_recording_handle(int hid, Routine routine, Call f,
                                                       SlowCall slow) {
  qk_mem_handle* handle = find_handle_fast(hid);
  if (handle != nullptr) [[likely]] {
    const Road road = road_of(*handle, routine);
    if (road == Road::kRecords) [[likely]]
      return f.template operator()<NoLock>(*handle);
    if (road == Road::kRecordsLocked) return f.template operator()<HandleLock>(*handle);
  }
  return slow();
}

/** Takes the first free slot of an array; kNoSlot if that takes a search or a larger array. */
[[nodiscard, gnu::always_inline]] inline std::int32_t take_slot_fast(qk_mem_ptr_array& array) {
  const std::int32_t index = likely_free_slot(array);
  if (!is_free(array, index)) [[unlikely]]
    return kNoSlot;
  note_occupied(array, index);
  return index;
}

/**
 * The same for a realloc, in place of a record that was set aside. Its slot is free afterwards, if
 * it isn't the one that was taken.
 */
[[nodiscard, gnu::always_inline]] inline std::int32_t take_slot_again_fast(qk_mem_handle& handle,
                                                                           qk_mem_ptr_array& array,
                                                                           const Removed& old) {
  qk_mem_ptr_array& old_array = array_of(handle, old.record.address);
  if (&array != &old_array || old.index >= likely_free_slot(array) ||
      !is_set_aside(array, old.index)) {
    free_place(old_array, old.index);
    return take_slot_fast(array);
  }
  retake_place(array, old.index);  // no slot below it is free
  return old.index;
}

/** Records memory in a slot that was just taken. */
[[gnu::always_inline]] inline void fill_slot_fast(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                                  std::int32_t index, void* address,
                                                  unsigned char kind, std::uint64_t count,
                                                  std::uint64_t size, const char* file, int line) {
  const bool single_threaded = qk::is_single_threaded();
  const std::uint32_t seq = qk::add(Qk_mem_seq, 1, single_threaded);
  const auto short_line = static_cast<std::uint16_t>(line);
  fill_slot(handle, array, index, {address, nullptr, file, count, size, seq, short_line, kind, 0},
            charged_to(kind), single_threaded);
}

/** Does what record_fast() does, under the handle's lock. */
[[nodiscard, gnu::always_inline]] inline bool record_locked(qk_mem_handle& handle, void* address,
                                                            unsigned char kind, std::uint64_t count,
                                                            std::uint64_t size, const char* file,
                                                            int line) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = take_slot_fast(array);
  if (index == kNoSlot) [[unlikely]]
    return false;
  fill_slot_fast(handle, array, index, address, kind, count, size, file, line);
  return true;
}

/** Records an allocation, unless that takes a search for a slot or a larger array. */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool record_fast(qk_mem_handle& handle, void* address,
                                                          unsigned char kind, std::uint64_t count,
                                                          std::uint64_t size, const char* path,
                                                          int line) {
  const char* file = qk::name_in_known_path(path);
  const Lock lock(handle);
  return record_locked(handle, address, kind, count, size, file, line);
}

/**
 * The same for the memory that a realloc has returned. The place of the record that was set aside
 * for it is given up in any case.
 */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool record_again_fast(qk_mem_handle& handle,
                                                                const Removed& old, void* address,
                                                                std::uint64_t size,
                                                                const char* path, int line) {
  const char* file = qk::name_in_known_path(path);
  qk_mem_ptr_array& array = array_of(handle, address);
  const Lock lock(handle);
  const std::int32_t index = take_slot_again_fast(handle, array, old);
  if (index == kNoSlot) [[unlikely]]
    return false;
  fill_slot_fast(handle, array, index, address, kind::kRealloc, 1, size, file, line);
  return true;
}

/**
 * Removes the record of an address from an ordinary handle, and counts the event. False, and nothing
 * has changed, if there is no record.
 */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool remove_fast(qk_mem_handle& handle,
                                                          const void* address) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const Lock lock(handle);
  const std::int32_t index = find_slot(array, address);
  if (index <= 0) [[unlikely]]
    return false;
  const bool single_threaded = qk::is_single_threaded();
  remove_record(handle, array, index, ChargedTo::kData, single_threaded);
  qk::add(Qk_mem_seq, 1, single_threaded);
  return true;
}

/** The same for a realloc: sets the record aside, see set_aside_pointer(). */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool set_aside_fast(qk_mem_handle& handle,
                                                             const void* address,
                                                             Removed& removed) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const Lock lock(handle);
  const std::int32_t index = find_slot(array, address);
  if (index <= 0) [[unlikely]]
    return false;
  removed = {read_slot(array.ptrs[index]), index, ChargedTo::kData};
  set_aside(handle, array, index, ChargedTo::kData, qk::is_single_threaded());
  return true;
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_FAST_PATH_H_
