#ifndef QKMEM_ALLOC_FAST_PATH_H_
#define QKMEM_ALLOC_FAST_PATH_H_

#include <cstdint>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/trace_file.h"
#include "support/text.h"
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
  return hid == QK_MEM_DATA_HANDLE && is_started() && !debugging();
}

/** Whether a routine's events cause no check, no line, no row and no report. */
[[nodiscard]] inline bool is_unobserved(const qk_mem_debug& switches) {
  return (qk::load(switches.on) | qk::load(switches.debug) | qk::load(switches.ctrlblks)) == 0 &&
         qk::acquire(Qk_mem_db) == nullptr;
}

/**
 * The handle of a number for an unobserved routine; null if the slow path is needed. The handle
 * comes first: before the start-up is over there is none, and the switches must not be read.
 */
[[nodiscard]] inline qk_mem_handle* unobserved_handle(int hid, Routine routine) {
  qk_mem_handle* handle = find_handle_fast(hid);
  return handle != nullptr && is_unobserved(switches_of(routine)) ? handle : nullptr;
}

/** The same for ordinary handles that record pointers; null for all others. */
[[nodiscard]] inline qk_mem_handle* unobserved_recording_handle(int hid, Routine routine) {
  qk_mem_handle* handle = unobserved_handle(hid, routine);
  return handle != nullptr && handle->track != 0 && !is_blockmgmt(*handle) ? handle : nullptr;
}

/** Takes the place of HandleLock on handles without a mutex. */
struct NoLock {
  explicit NoLock(const qk_mem_handle& /*handle*/) {}
};

/** Calls `f` with the type of lock that a handle needs, so that all of `f` is compiled for it. */
template <class Call>
[[gnu::always_inline]] inline auto with_lock_of(const qk_mem_handle& handle, Call f) {
  return handle.mtx == nullptr ? f.template operator()<NoLock>()
                               : f.template operator()<HandleLock>();
}

/** Records an allocation, unless that takes a search for a slot or a larger array. */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool record_fast(qk_mem_handle& handle, void* address,
                                                          unsigned char kind, std::uint64_t count,
                                                          std::uint64_t size, const char* path,
                                                          int line) {
  const char* file = qk::file_name_only(path);
  qk_mem_ptr_array& array = array_of(handle, address);
  const Lock lock(handle);
  const std::int32_t index = likely_free_slot(array);
  if (!is_free(array, index)) [[unlikely]]
    return false;
  const bool single_threaded = qk::is_single_threaded();
  const std::uint32_t seq = qk::add(Qk_mem_seq, 1, single_threaded);
  const auto short_line = static_cast<std::uint16_t>(line);
  insert_record(handle, array, index,
                {address, nullptr, file, count, size, seq, short_line, kind, 0}, charged_to(kind),
                single_threaded);
  return true;
}

/**
 * Removes the record of an address from an ordinary handle, and copies it to `removed` if that is
 * not null. False, and nothing has changed, if there is no record.
 */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool remove_fast(qk_mem_handle& handle,
                                                          const void* address,
                                                          Removed* removed = nullptr) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const Lock lock(handle);
  const std::int32_t index = find_slot(array, address);
  if (index <= 0) [[unlikely]]
    return false;
  if (removed != nullptr) *removed = {read_slot(array.ptrs[index]), index, ChargedTo::kData};
  remove_record(handle, array, index, ChargedTo::kData, qk::is_single_threaded());
  return true;
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_FAST_PATH_H_
