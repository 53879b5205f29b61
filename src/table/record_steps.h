#ifndef QKMEM_TABLE_RECORD_STEPS_H_
#define QKMEM_TABLE_RECORD_STEPS_H_

#include <cstdint>

#include "core/kinds.h"
#include "core/registry.h"
#include "core/tag_shares.h"
#include "table/charges.h"
#include "table/pointer_array.h"
#include "table/slot.h"

/**
 * The steps that insert and remove a record: the slot, the quantities, the bytes. They are inline
 * because they are most of what a tracked call costs beside the system's allocator.
 *
 * All calls need the handle's lock; charge() and count_record() assert it for all.
 * `single_threaded` is qk::is_single_threaded(), which the caller asks once for all steps.
 */
namespace qk::mem {

/**
 * Calls `steps` with qk::is_single_threaded() as a constant, so that the steps are compiled for
 * either case.
 */
template <class Steps>
[[gnu::always_inline]] inline void with_single_threaded(Steps steps) {
  if (qk::is_single_threaded()) [[likely]] {
    steps(true);
  } else {
    steps(false);
  }
}

/** Adds bytes to a sum; a negated number subtracts. */
[[gnu::always_inline]] inline void charge(qk_mem_handle& handle, TagSums tag, ChargedTo sum,
                                          std::uint64_t bytes) {
  assert_held(handle);
  if (sum == ChargedTo::kOverhead) {
    qk::bump(handle.overhead_amount, bytes);
  } else if (sum == ChargedTo::kData) {
    qk::bump(handle.amount, bytes);
    qk::bump(tag.amount, bytes);
  }
}

/** Adds 1 or -1 to the quantity that records of `kind` are counted in. */
[[gnu::always_inline]] inline void count_record(qk_mem_handle& handle, TagSums tag,
                                                unsigned char kind, int by) {
  assert_held(handle);
  const auto change = static_cast<std::uint32_t>(by);
  if (counts_as_overhead(kind)) {
    qk::bump(handle.overhead_qty, change);
  } else {
    qk::bump(handle.qty, change);
    qk::bump(tag.qty, change);
  }
}

/** Counts a record that was just written into a slot, and adds its bytes to `sum`. */
[[gnu::always_inline]] inline void count_in(qk_mem_handle& handle, const qk_mem_ptr& record,
                                            ChargedTo sum, bool single_threaded) {
  const TagSums tag = tag_sums_of(handle, single_threaded);
  count_record(handle, tag, record.kind, 1);
  charge(handle, tag, sum, bytes_of(record));
}

/**
 * Writes a record in place of one of the same address, which was set aside in a small array. Counts
 * it and adds its bytes to `sum`.
 */
[[gnu::always_inline]] inline void refill_slot_of_small(qk_mem_handle& handle,
                                                        qk_mem_ptr_array& array, std::int32_t index,
                                                        const qk_mem_ptr& record, ChargedTo sum,
                                                        bool single_threaded) {
  array.last = index;
  write_slot(array.ptrs[index], record);
  count_in(handle, record, sum, single_threaded);
}

/** Writes a record into a slot that was just taken, counts it and adds its bytes to `sum`. */
[[gnu::always_inline]] inline void fill_slot_of_small(qk_mem_handle& handle,
                                                      qk_mem_ptr_array& array, std::int32_t index,
                                                      const qk_mem_ptr& record, ChargedTo sum,
                                                      bool single_threaded) {
  write_slot(array.ptrs[index], record);
  count_in(handle, record, sum, single_threaded);
  set_print(array.prints, static_cast<std::uint32_t>(index), print_of(record.address));
}

/** The same in any array. */
[[gnu::always_inline]] inline void fill_slot(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                             std::int32_t index, const qk_mem_ptr& record,
                                             ChargedTo sum, bool single_threaded) {
  assert_held(handle);
  write_slot(array.ptrs[index], record);
  count_in(handle, record, sum, single_threaded);
  index_slot(array, index, record.address);
}

/**
 * Clears a slot and subtracts 1 from the quantity that `kind` is counted in. The caller adjusts the
 * bytes.
 *
 * `kind` is read AFTER the slot is clear: a reference to the slot's own kind reads 0 by then, so
 * that every record, overhead included, is subtracted from the data.
 */
[[gnu::always_inline]] inline void vacate(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                          std::int32_t index, const unsigned char& kind,
                                          bool single_threaded) {
  free_slot(array, index);
  count_record(handle, tag_sums_of(handle, single_threaded), kind, -1);
}

/** The bytes of the record in a slot. */
[[nodiscard]] inline std::uint64_t bytes_in(const qk_mem_ptr& slot) {
  return qk::load(slot.count) * qk::load(slot.size);
}

/** The kind in a cleared slot. The library subtracts every record as one of this kind. */
inline constexpr unsigned char kClearedKind = 0;

/** Undoes count_in() for a record of these bytes, except that it always counts as one of data. */
[[gnu::always_inline]] inline void count_out(qk_mem_handle& handle, std::uint64_t bytes,
                                             ChargedTo sum, bool single_threaded) {
  const TagSums tag = tag_sums_of(handle, single_threaded);
  charge(handle, tag, sum, 0 - bytes);
  count_record(handle, tag, kClearedKind, -1);
}

/**
 * Subtracts a record's bytes from `sum` and removes it. The array's own record stays in its slot.
 */
[[gnu::always_inline]] inline void remove_record(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                                 std::int32_t index, ChargedTo sum,
                                                 bool single_threaded) {
  const std::uint64_t bytes = bytes_in(array.ptrs[index]);
  if (index == 0) return charge(handle, tag_sums_of(handle, single_threaded), sum, 0 - bytes);
  free_slot(array, index);
  count_out(handle, bytes, sum, single_threaded);
}

/** Does the same to a record of a small array, which is not the array's own and has so many bytes. */
[[gnu::always_inline]] inline void remove_from_small(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                                     std::int32_t index, std::uint64_t bytes,
                                                     ChargedTo sum, bool single_threaded) {
  free_slot_of_small(array, index);
  count_out(handle, bytes, sum, single_threaded);
}

/**
 * Subtracts a record as remove_record() does, but only sets it aside: the slot stays taken, so that
 * put_back() needs no room, until free_place() gives it up.
 */
[[gnu::always_inline]] inline void set_aside(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                             std::int32_t index, ChargedTo sum,
                                             bool single_threaded) {
  const std::uint64_t bytes = bytes_in(array.ptrs[index]);
  if (index == 0) return charge(handle, tag_sums_of(handle, single_threaded), sum, 0 - bytes);
  hide_address(array, index);
  count_out(handle, bytes, sum, single_threaded);
}

/** Does the same to a record of a small array, which is not the array's own. */
[[gnu::always_inline]] inline void set_aside_in_small(qk_mem_handle& handle,
                                                      qk_mem_ptr_array& array, std::int32_t index,
                                                      ChargedTo sum, bool single_threaded) {
  hide_address_in_small(array, index);
  count_out(handle, bytes_in(array.ptrs[index]), sum, single_threaded);
}

/** Whether a slot has a record that is set aside. Not so once the array has lost its slots. */
[[nodiscard]] inline bool is_set_aside(const qk_mem_ptr_array& array, std::int32_t index) {
  return holds(array, index, &set_aside_mark);
}

/** Undoes set_aside(). */
inline void put_back(qk_mem_handle& handle, qk_mem_ptr_array& array, std::int32_t index,
                     const qk_mem_ptr& record, ChargedTo sum, bool single_threaded) {
  const TagSums tag = tag_sums_of(handle, single_threaded);
  if (index != 0) {
    replace_address(array, index, record.address);
    count_record(handle, tag, kClearedKind, 1);
  }
  charge(handle, tag, sum, bytes_of(record));
}

/** Takes the slot of a record that is set aside for another record. */
[[gnu::always_inline]] inline void retake_place(qk_mem_ptr_array& array, std::int32_t index) {
  unindex_slot(array, index);
  array.last = index;
}

/** Frees the slot of a record that was set aside. */
[[gnu::always_inline]] inline void free_place(qk_mem_ptr_array& array, std::int32_t index) {
  if (is_set_aside(array, index)) [[likely]]
    free_slot(array, index);
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_RECORD_STEPS_H_
