#ifndef QKMEM_TABLE_RECORD_STEPS_H_
#define QKMEM_TABLE_RECORD_STEPS_H_

#include <cstdint>

#include "core/kinds.h"
#include "core/registry.h"
#include "table/pointer_array.h"
#include "table/pointer_table.h"

/**
 * What it takes to make and to remove a record: the slot, the quantities, the bytes. Inline, since
 * these steps are what a tracked call costs beside the allocator's own work.
 *
 * All calls need the handle's lock. Whether the process has one thread is asked once for all steps.
 */
namespace qk::mem {

/** Whether the bytes of a record count in `totals` of a handle. */
[[nodiscard]] inline bool is_part_of(const qk_mem_handle& handle, Totals totals,
                                     unsigned char kind) {
  switch (totals) {
    case Totals::kDataOfOrdinary:
      return !is_blockmgmt(handle);
    case Totals::kDataExceptPieces:
      return !is_blockmgmt(handle) || kind == kind::kExternal;
    case Totals::kNone:
      return false;
    case Totals::kData:
    case Totals::kOverhead:
      break;
  }
  return true;
}

/** Whether nobody else can be changing the totals of a handle's tag. */
[[nodiscard]] inline bool has_tag_alone(const qk_mem_handle& handle, bool single_threaded) {
  return single_threaded || handle.owns_tag != 0;
}

inline void sum_bytes(qk_mem_handle& handle, Totals totals, unsigned char kind, std::uint64_t bytes,
                      bool single_threaded) {
  assert_held(handle);
  if (!is_part_of(handle, totals, kind)) return;
  if (totals == Totals::kOverhead) {
    qk::bump(handle.overhead_amount, bytes);
  } else {
    qk::bump(handle.amount, bytes);
    qk::add(handle.tag->amount, bytes, has_tag_alone(handle, single_threaded));
  }
}

/** Counts a record on (`by` 1) or off (-1). */
inline void count_record(qk_mem_handle& handle, unsigned char kind, int by, bool single_threaded) {
  assert_held(handle);
  const auto change = static_cast<std::uint32_t>(by);
  if (counts_as_overhead(kind)) {
    qk::bump(handle.overhead_qty, change);
  } else {
    qk::bump(handle.qty, change);
    qk::add(handle.tag->qty, change, has_tag_alone(handle, single_threaded));
  }
}

/** Puts a record into a free slot and into the sums. */
[[gnu::always_inline]] inline void occupy(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                          std::int32_t index, const qk_mem_ptr& record,
                                          Totals totals, bool single_threaded) {
  assert_held(handle);
  take_slot(array, index, record.address);
  write_slot(array.ptrs[index], record);
  count_record(handle, record.kind, 1, single_threaded);
  sum_bytes(handle, totals, record.kind, bytes_of(record), single_threaded);
}

/**
 * Clears a slot and counts its record off as one of `kind`, which is read AFTER the slot is clear:
 * who passes the slot's own kind counts every record off as data, overhead included. The caller
 * adjusts the bytes.
 */
[[gnu::always_inline]] inline void vacate(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                          std::int32_t index, const unsigned char& kind,
                                          bool single_threaded) {
  assert_held(handle);
  clear_slot(array.ptrs[index]);
  give_slot(array, index);
  count_record(handle, kind, -1, single_threaded);
}

/** The kind that a cleared slot shows, as which the library counts every record off. */
inline constexpr unsigned char kClearedKind = 0;

/** Takes the record of a slot out of the sums and, but for the array's own, out of the slot. */
[[gnu::always_inline]] inline void take_out(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                            std::int32_t index, Totals totals,
                                            bool single_threaded) {
  assert_held(handle);
  const qk_mem_ptr& slot = array.ptrs[index];
  const std::uint64_t bytes = qk::load(slot.count) * qk::load(slot.size);
  sum_bytes(handle, totals, qk::load(slot.kind), 0 - bytes, single_threaded);
  if (index > 0) vacate(handle, array, index, kClearedKind, single_threaded);
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_RECORD_STEPS_H_
