#ifndef QKMEM_TABLE_POINTER_ARRAY_H_
#define QKMEM_TABLE_POINTER_ARRAY_H_

#include <cstdint>
#include <new>

#include "core/records.h"
#include "support/shortcuts.h"
#include "table/prints.h"
#include "table/slot.h"
#include "table/slot_index.h"

/**
 * The slots of one pointer array: which are free, and which one holds an address. The counters of
 * the handle are changed elsewhere. All calls need the handle's lock; callers assert it, since the
 * handle is not known here.
 *
 * A small array, of 16 slots, has a bit for each free slot and a print of each address in its
 * descriptor. A larger one gets a SlotIndex with the first search for an address, unless the slot
 * used last has it. The slots decide: prints and index only say which ones to look at.
 */
namespace qk::mem {

inline constexpr std::int32_t kNoSlot = -1;

/** The slots of a small array. Each has a print. */
inline constexpr std::int32_t kSmallArray = kPrints;

/**
 * The array of an address. std::launder keeps the compiler from computing its position in the
 * handle again for every field.
 */
[[nodiscard]] inline qk_mem_ptr_array& array_of(qk_mem_handle& handle, const void* address) {
  return *std::launder(&handle.ptrs[(reinterpret_cast<std::uintptr_t>(address) >> 4) & 7]);
}

[[nodiscard]] inline bool is_full(const qk_mem_ptr_array& array) {
  return array.used == array.capacity;
}

/** Whether an array has free_slots and prints. They are zero if it has lost its slots. */
[[nodiscard]] inline bool is_small(const qk_mem_ptr_array& array) {
  return qk::kShortcuts && array.capacity == kSmallArray;
}

/** The index of an array; null for a small one, and as long as there was no search or no memory. */
[[nodiscard]] inline SlotIndex* index_of(const qk_mem_ptr_array& array) {
  return array.capacity > kSmallArray ? array.larger.index : nullptr;
}

/** Whether a slot holds an address. False for an `index` beyond the end. */
[[nodiscard]] inline bool holds(const qk_mem_ptr_array& array, std::int32_t index,
                                const void* address) {
  return array.ptrs != nullptr && index < array.capacity &&
         qk::load(array.ptrs[index].address) == address;
}

/**
 * Enlarges an array to `capacity` slots. The new ones are free. The caller fills slot 0 of an array
 * that had none.
 *
 * @return false, with errno, if there is no memory. The array then has the larger capacity but no
 *         slots, for good, and has lost its records. If one of them is set aside, the array stays
 *         as it was.
 */
[[nodiscard]] bool enlarge(qk_mem_ptr_array& array, std::int32_t capacity);

/** The lowest free slot from 1 on of an array that is not small; kNoSlot if there is none. */
[[nodiscard]] std::int32_t lowest_free_slot_of_larger(qk_mem_ptr_array& array);

/** The steps of index_slot(), unindex_slot() and free_slot() for an array that is not small. */
void index_slot_of_larger(qk_mem_ptr_array& array, std::int32_t index);
void unindex_slot_of_larger(qk_mem_ptr_array& array, std::int32_t index);
void free_slot_of_larger(qk_mem_ptr_array& array, std::int32_t index);

/** The step of find_slot() that every array can take. */
[[nodiscard]] std::int32_t search_slot(qk_mem_ptr_array& array, const void* address);

/** Counts a free slot as taken, and returns it. */
[[gnu::always_inline]] inline std::int32_t take_slot(qk_mem_ptr_array& array, std::int32_t index) {
  qk::bump(array.used, 1);
  array.last = index;
  return index;
}

/** take_free_slot() for a small array. Any other one has none here. */
[[nodiscard, gnu::always_inline]] inline std::int32_t take_free_slot_of_small(
    qk_mem_ptr_array& array) {
  const std::uint32_t free_slots = array.free_slots;
  if (free_slots == 0) [[unlikely]]
    return kNoSlot;
  array.free_slots = free_slots & (free_slots - 1);
  return take_slot(array, __builtin_ctz(free_slots));
}

/**
 * Takes the lowest free slot from 1 on. The caller writes a record into it, then calls
 * index_slot().
 *
 * @return kNoSlot if there is none.
 */
[[nodiscard, gnu::always_inline]] inline std::int32_t take_free_slot(qk_mem_ptr_array& array) {
  const std::int32_t index_in_small = take_free_slot_of_small(array);
  if (index_in_small != kNoSlot) [[likely]]
    return index_in_small;
  const std::int32_t index = lowest_free_slot_of_larger(array);
  return index == kNoSlot ? kNoSlot : take_slot(array, index);
}

/** Whether no slot below an occupied one of a small array is free. */
[[nodiscard]] inline bool is_first_choice_in_small(const qk_mem_ptr_array& array,
                                                   std::int32_t index) {
  return (array.free_slots & ((std::uint32_t{1} << index) - 1)) == 0;
}

/** The same for any array. */
[[nodiscard]] inline bool is_first_choice(qk_mem_ptr_array& array, std::int32_t index) {
  if (is_small(array)) [[likely]]
    return is_first_choice_in_small(array, index);
  const std::int32_t lowest = lowest_free_slot_of_larger(array);
  return lowest == kNoSlot || index < lowest;
}

/**
 * The slot of an address in a small array, in the usual case that a single print matches. The own
 * record's print is one of them, and without slots all prints are equal.
 *
 * @return kNoSlot if it takes search_slot() to tell.
 */
[[nodiscard, gnu::always_inline]] inline std::int32_t find_slot_of_small(qk_mem_ptr_array& array,
                                                                         const void* address) {
  const std::uint32_t matches = prints_with(array.prints, print_of(address)) & ~array.free_slots;
  if (matches <= 1 || (matches & (matches - 1)) != 0) [[unlikely]]
    return kNoSlot;
  const std::int32_t index = __builtin_ctz(matches);
  // A record that is set aside has left its print behind.
  if (qk::load(array.ptrs[index].address) != address) [[unlikely]]
    return kNoSlot;
  array.last = index;
  return index;
}

/** The slot used last if it holds the address, otherwise the first one that does; or kNoSlot. */
[[nodiscard, gnu::always_inline]] inline std::int32_t find_slot(qk_mem_ptr_array& array,
                                                                const void* address) {
  const std::int32_t index = is_small(array) ? find_slot_of_small(array, address) : kNoSlot;
  return index != kNoSlot ? index : search_slot(array, address);
}

/** Lets an occupied slot be found by the address that it has. */
inline void index_slot(qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  if (is_small(array)) [[likely]] {
    set_print(array.prints, static_cast<std::uint32_t>(index), print_of(address));
  } else {
    index_slot_of_larger(array, index);
  }
}

/** Undoes index_slot() for a slot that still has its address, and will have another one. */
inline void unindex_slot(qk_mem_ptr_array& array, std::int32_t index) {
  if (!is_small(array)) [[unlikely]]
    unindex_slot_of_larger(array, index);
}

/** Gives an occupied slot another address, which is not null. */
inline void replace_address(qk_mem_ptr_array& array, std::int32_t index, void* address) {
  unindex_slot(array, index);
  qk::publish(array.ptrs[index].address, address);
  index_slot(array, index, address);
}

/**
 * Replaces the address of an occupied slot by the mark of records that are set aside. No address
 * finds it then: in a small array the slot's print stays, but does not decide.
 */
inline void hide_address_in_small(qk_mem_ptr_array& array, std::int32_t index) {
  qk::publish(array.ptrs[index].address, &set_aside_mark);
}

inline void hide_address(qk_mem_ptr_array& array, std::int32_t index) {
  if (is_small(array)) [[likely]]
    return hide_address_in_small(array, index);
  replace_address(array, index, &set_aside_mark);
}

/** Makes an occupied slot of a small array a free one. */
[[gnu::always_inline]] inline void free_slot_of_small(qk_mem_ptr_array& array, std::int32_t index) {
  array.free_slots |= std::uint32_t{1} << index;
  clear_slot(array.ptrs[index]);
  qk::bump(array.used, -1);
}

/** Makes an occupied slot, which still has its address, a free one. */
[[gnu::always_inline]] inline void free_slot(qk_mem_ptr_array& array, std::int32_t index) {
  if (is_small(array)) [[likely]]
    return free_slot_of_small(array, index);
  free_slot_of_larger(array, index);
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_POINTER_ARRAY_H_
