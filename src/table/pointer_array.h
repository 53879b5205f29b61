#ifndef QKMEM_TABLE_POINTER_ARRAY_H_
#define QKMEM_TABLE_POINTER_ARRAY_H_

#include <cstdint>
#include <new>

#include "core/records.h"
#include "table/slot.h"

/**
 * The slots of one pointer array: which are free, and which one holds an address. The counters of
 * the handle are changed elsewhere. All calls need the handle's lock; callers assert it, since the
 * handle is not known here.
 *
 * A large array keeps 16 bits of each address a second time, as fingerprints behind its slots.
 * Searching them is many times as fast as searching the records.
 *
 *     ptrs -> [ own record | slot 1 | … | slot capacity-1 ][ 0 | fingerprint 1 | … ]
 *              48 bytes each                                2 bytes each, 0 for a free slot
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

/** From this number of slots on an array is large and keeps fingerprints. */
inline constexpr std::int32_t kLargeArray = 512;

/** The fingerprints behind the slots of an array with this capacity; null if it is not large. */
[[nodiscard]] inline std::uint16_t* fingerprints_behind(qk_mem_ptr* slots, std::int32_t capacity) {
  if (capacity < kLargeArray) [[likely]]
    return nullptr;
  return reinterpret_cast<std::uint16_t*>(slots + capacity);
}

/** The fingerprints of an array that has slots; null if it is not large. */
[[nodiscard]] inline std::uint16_t* fingerprints_of(const qk_mem_ptr_array& array) {
  return fingerprints_behind(array.ptrs, array.capacity);
}

/** The fingerprint of an address. Never 0, which marks a free slot. */
[[nodiscard]] inline std::uint16_t fingerprint_of(const void* address) {
  const auto bits = static_cast<std::uint16_t>(reinterpret_cast<std::uintptr_t>(address) >> 7);
  return bits == 0 ? std::uint16_t{1} : bits;
}

/**
 * Enlarges an array to `capacity` slots. The new ones are free. The caller fills slot 0 of an array
 * that had none.
 *
 * @return false, with errno, if there is no memory. The array then has the larger capacity but no
 *         slots, for good, and has lost its records.
 */
[[nodiscard]] bool enlarge(qk_mem_ptr_array& array, std::int32_t capacity);

/** Searches for the first free slot from 1 on; kNoSlot if there is none. */
[[nodiscard]] std::int32_t search_free_slot(qk_mem_ptr_array& array);

/** Searches for the first slot from 1 on that holds an address; kNoSlot if there is none. */
[[nodiscard]] std::int32_t search_slot(const qk_mem_ptr_array& array, const void* address);

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

/** Marks a free slot as occupied by the record of an address. */
inline void note_occupied(qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  if (std::uint16_t* fingerprints = fingerprints_of(array)) {
    fingerprints[index] = fingerprint_of(address);
  }
  qk::bump(array.used, 1);
  array.last = index;
  if (index == array.spare) {
    array.spare = 0;
  } else if (index == array.free_from) {
    array.free_from = index + 1;
  }
}

/**
 * Marks a slot as free. Only one free slot may lie below `free_from`: with two, the limit drops to
 * the higher one.
 */
inline void note_vacated(qk_mem_ptr_array& array, std::int32_t index) {
  if (std::uint16_t* fingerprints = fingerprints_of(array)) fingerprints[index] = 0;
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
