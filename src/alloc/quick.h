#ifndef QKMEM_ALLOC_QUICK_H_
#define QKMEM_ALLOC_QUICK_H_

#include <cstdint>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/trace_file.h"
#include "support/text.h"
#include "table/record_steps.h"

/**
 * The quick road: what a call comes to where nobody is told of it and nothing is unusual. It takes
 * the same steps as the general one and leaves the same books, without a site, a copy of the record
 * or a call out of line. Who meets something unusual on it goes on along the general road.
 */
namespace qk::mem {

/** Whether nobody is told of a routine's events: no check, no line, no row, no report. */
[[nodiscard]] inline bool is_quiet(const qk_mem_debug& switches) {
  return (qk::load(switches.on) | qk::load(switches.debug) | qk::load(switches.ctrlblks)) == 0 &&
         qk::acquire(Qk_mem_db) == nullptr;
}

/**
 * The handle of a number, unless there is none or the general road is needed anyway. Found first:
 * before the start-up is over there is none, and the switches aren't to be read.
 */
[[nodiscard]] inline qk_mem_handle* quiet_handle(int hid, Routine routine) {
  qk_mem_handle* handle = handle_at_once(hid);
  return handle != nullptr && is_quiet(switches_of(routine)) ? handle : nullptr;
}

/** An ordinary handle whose pointers are recorded. */
[[nodiscard]] inline bool is_tracking(const qk_mem_handle& handle) {
  return handle.track != 0 && !is_blockmgmt(handle);
}

/** Stands in for HandleLock on handles without a mutex. */
struct NoLock {
  explicit NoLock(const qk_mem_handle& /*handle*/) {}
};

/** Records an allocation where a slot is known to be free; else nothing happens. */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool record_quickly(qk_mem_handle& handle, void* address,
                                                             unsigned char kind,
                                                             std::uint64_t count,
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
  occupy(handle, array, index, {address, nullptr, file, count, size, seq, short_line, kind, 0},
         Totals::kDataOfOrdinary, single_threaded);
  return true;
}

/** Takes the record of an address out, into `taken` if wanted; nothing happens without a record. */
template <class Lock>
[[nodiscard, gnu::always_inline]] inline bool take_quickly(qk_mem_handle& handle,
                                                           const void* address, Totals totals,
                                                           Taken* taken = nullptr) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const Lock lock(handle);
  const std::int32_t index = find_slot(array, address);
  if (index <= 0) [[unlikely]]
    return false;
  if (taken != nullptr) *taken = {read_slot(array.ptrs[index]), index};
  take_out(handle, array, index, totals, qk::is_single_threaded());
  return true;
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_QUICK_H_
