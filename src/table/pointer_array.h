#ifndef QKMEM_TABLE_POINTER_ARRAY_H_
#define QKMEM_TABLE_POINTER_ARRAY_H_

#include <cstdint>
#include <new>

#include "core/records.h"
#include "table/slot.h"
#include "table/slot_index.h"

/**
 * The slots of one pointer array: which are free, and which one holds an address. The counters of
 * the handle are changed elsewhere. All calls need the handle's lock; callers assert it, since the
 * handle is not known here.
 *
 * A large array has an index, which finds slots without a walk over all of them. A word behind the
 * slots leads to it.
 *
 *     ptrs -> [ own record | slot 1 | … | slot capacity-1 ][ index ]
 *              48 bytes each                                8 bytes, null if there was no memory
 */
namespace qk::mem {

inline constexpr std::int32_t kNoSlot = -1;

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

/** Whether a slot holds an address. False for an `index` beyond the end. */
[[nodiscard]] inline bool holds(const qk_mem_ptr_array& array, std::int32_t index,
                                const void* address) {
  return array.ptrs != nullptr && index < array.capacity &&
         qk::load(array.ptrs[index].address) == address;
}

[[nodiscard]] inline bool is_free(const qk_mem_ptr_array& array, std::int32_t index) {
  return holds(array, index, nullptr);
}

/** From this number of slots on an array is large and has an index. */
inline constexpr std::int32_t kLargeArray = 512;

/** The word behind the slots of an array with this capacity, which is large. */
[[nodiscard]] inline SlotIndex*& index_behind(qk_mem_ptr* slots, std::int32_t capacity) {
  return *reinterpret_cast<SlotIndex**>(slots + capacity);
}

/** The index of an array that has slots; null if it is not large, or there was no memory. */
[[nodiscard]] inline SlotIndex* index_of(const qk_mem_ptr_array& array) {
  if (array.capacity < kLargeArray) [[likely]]
    return nullptr;
  return index_behind(array.ptrs, array.capacity);
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

/** Searches for the first free slot from 1 on; kNoSlot if there is none. */
[[nodiscard]] std::int32_t search_free_slot(qk_mem_ptr_array& array);

/** Searches for the first slot from 1 on that holds an address; kNoSlot if there is none. */
[[nodiscard]] std::int32_t search_slot(const qk_mem_ptr_array& array, const void* address);

/** The steps of add_to_index() and remove_from_index() for a large array. */
[[gnu::cold]] void add_to_index_of_large(const qk_mem_ptr_array& array, std::int32_t index);
[[gnu::cold]] void remove_from_index_of_large(const qk_mem_ptr_array& array, std::int32_t index);

/** The slot that is probably the first free one. The caller checks it. */
[[nodiscard]] inline std::int32_t likely_free_slot(const qk_mem_ptr_array& array) {
  return array.spare != 0 ? array.spare : array.free_from;
}

/** The first free slot from 1 on; kNoSlot if there is none. */
[[nodiscard]] inline std::int32_t first_free_slot(qk_mem_ptr_array& array) {
  const std::int32_t index = likely_free_slot(array);
  return is_free(array, index) ? index : search_free_slot(array);
}

/** The slot used last if it holds the address, otherwise the first one that does; or kNoSlot. */
[[nodiscard]] inline std::int32_t find_slot(qk_mem_ptr_array& array, const void* address) {
  if (address == nullptr) return kNoSlot;
  if (holds(array, array.last, address)) [[likely]]
    return array.last;
  const std::int32_t index = search_slot(array, address);
  if (index != kNoSlot) array.last = index;
  return index;
}

/** Marks a free slot as occupied. */
inline void note_occupied(qk_mem_ptr_array& array, std::int32_t index) {
  qk::bump(array.used, 1);
  array.last = index;
  if (index == array.spare) {
    array.spare = 0;
  } else if (index == array.free_from) {
    array.free_from = index + 1;
  }
}

/** Adds an occupied slot, which has its address, to the index of an array that has one. */
inline void add_to_index(const qk_mem_ptr_array& array, std::int32_t index) {
  if (array.capacity >= kLargeArray) [[unlikely]]
    add_to_index_of_large(array, index);
}

/** Removes an occupied slot, which still has its address, from the index. */
inline void remove_from_index(const qk_mem_ptr_array& array, std::int32_t index) {
  if (array.capacity >= kLargeArray) [[unlikely]]
    remove_from_index_of_large(array, index);
}

/** Gives an occupied slot another address, which is not null. */
inline void replace_address(const qk_mem_ptr_array& array, std::int32_t index, void* address) {
  remove_from_index(array, index);
  qk::publish(array.ptrs[index].address, address);
  add_to_index(array, index);
}

/**
 * Marks a slot as free. Only one free slot may lie below `free_from`: with two, the limit drops to
 * the higher one.
 */
inline void note_vacated(qk_mem_ptr_array& array, std::int32_t index) {
  qk::bump(array.used, -1);
  if (index >= array.free_from) return;
  if (array.spare == 0) {
    array.spare = index;
  } else if (index < array.spare) {
    array.free_from = array.spare;
    array.spare = index;
  } else {
    array.free_from = index;
  }
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_POINTER_ARRAY_H_
