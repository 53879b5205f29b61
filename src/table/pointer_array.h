#ifndef QKMEM_TABLE_POINTER_ARRAY_H_
#define QKMEM_TABLE_POINTER_ARRAY_H_

#include <cstdint>
#include <new>

#include "core/records.h"
#include "table/slot.h"

/**
 * The slots of one pointer array: which is free, which holds an address. Counters of the handle are
 * none of its business. All calls need the handle's lock, which those who make them assert: they
 * know the handle.
 *
 * A large array keeps 16 bits of each address a second time, in fingerprints behind its slots: they
 * are searched many times as fast as records are.
 *
 *     ptrs -> [ own record | slot 1 | … | slot capacity-1 ][ 0 | fingerprint 1 | … ]
 *              48 bytes each                                2 bytes each, 0 of a free slot
 */
namespace qk::mem {

inline constexpr std::int32_t kNoSlot = -1;

/**
 * The array that an address belongs to. Laundered, as the compiler else derives its place in the
 * handle anew for every field.
 */
[[nodiscard]] inline qk_mem_ptr_array& array_of(qk_mem_handle& handle, const void* address) {
  return *std::launder(&handle.ptrs[(reinterpret_cast<std::uintptr_t>(address) >> 4) & 7]);
}

[[nodiscard]] inline bool is_full(const qk_mem_ptr_array& array) {
  return array.used == array.capacity;
}

/**
 * Whether a slot holds an address; `index` can lie beyond the end, and then no address is there.
 */
[[nodiscard]] inline bool holds(const qk_mem_ptr_array& array, std::int32_t index,
                                const void* address) {
  return array.ptrs != nullptr && index < array.capacity &&
         qk::load(array.ptrs[index].address) == address;
}

[[nodiscard]] inline bool is_free(const qk_mem_ptr_array& array, std::int32_t index) {
  return holds(array, index, nullptr);
}

/** Slots from which on an array is large: searching fingerprints pays for keeping them. */
inline constexpr std::int32_t kLargeArray = 512;

/** The fingerprints behind so many slots; null where these are no large array. */
[[nodiscard]] inline std::uint16_t* fingerprints_behind(qk_mem_ptr* slots, std::int32_t capacity) {
  if (capacity < kLargeArray) [[likely]]
    return nullptr;
  return reinterpret_cast<std::uint16_t*>(slots + capacity);
}

/** The same of an array that has slots. */
[[nodiscard]] inline std::uint16_t* fingerprints_of(const qk_mem_ptr_array& array) {
  return fingerprints_behind(array.ptrs, array.capacity);
}

/** Never 0, which means a free slot. */
[[nodiscard]] inline std::uint16_t fingerprint_of(const void* address) {
  const auto bits = static_cast<std::uint16_t>(reinterpret_cast<std::uintptr_t>(address) >> 7);
  return bits == 0 ? std::uint16_t{1} : bits;
}

/**
 * Gives an array `capacity` slots, more than it has. The new ones are free; slot 0 of a first array
 * is the caller's to fill.
 *
 * @return false, with errno, when there is no memory: the array then keeps the larger capacity and
 *         no slots, for good, and what it held is lost.
 */
[[nodiscard]] bool enlarge(qk_mem_ptr_array& array, std::int32_t capacity);

/** Walks for the first free slot from 1 upward; kNoSlot when there is none. */
[[nodiscard]] std::int32_t search_free_slot(qk_mem_ptr_array& array);

/** Walks for the first slot from 1 upward that holds an address. */
[[nodiscard]] std::int32_t search_slot(const qk_mem_ptr_array& array, const void* address);

/** The first free slot as far as the array knows, if it is free. */
[[nodiscard]] inline std::int32_t likely_free_slot(const qk_mem_ptr_array& array) {
  return array.spare != 0 ? array.spare : array.free_from;
}

/** The first free slot from 1 upward; kNoSlot when there is none. */
[[nodiscard]] inline std::int32_t first_free_slot(qk_mem_ptr_array& array) {
  const std::int32_t index = likely_free_slot(array);
  return is_free(array, index) ? index : search_free_slot(array);
}

/** The slot that was used last if it holds an address, else the first that does. */
[[nodiscard]] inline std::int32_t find_slot(qk_mem_ptr_array& array, const void* address) {
  if (address == nullptr) return kNoSlot;
  if (holds(array, array.last, address)) [[likely]]
    return array.last;
  const std::int32_t index = search_slot(array, address);
  if (index != kNoSlot) array.last = index;
  return index;
}

/** Notes that a free slot is about to hold the record of an address. */
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

/** Notes that a slot is free; of two below `free_from` the higher one becomes the limit. */
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
