#ifndef QKMEM_TABLE_POINTER_ARRAY_H_
#define QKMEM_TABLE_POINTER_ARRAY_H_

#include <cstdint>
#include <new>

#include "core/records.h"
#include "table/slot.h"

/**
 * The slots of one pointer array: which is free, which holds an address. Counters of the handle are
 * none of its business. All calls need the handle's lock.
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

/** What the slices of an array show for an address: never 0, which means a free slot. */
[[nodiscard]] inline std::uint16_t slice_of(const void* address) {
  const auto slice = static_cast<std::uint16_t>(reinterpret_cast<std::uintptr_t>(address) >> 7);
  return slice == 0 ? std::uint16_t{1} : slice;
}

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
inline void take_slot(qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  if (array.slices != nullptr) [[unlikely]]
    array.slices->values()[index] = slice_of(address);
  qk::bump(array.used, 1);
  array.last = index;
  if (index == array.spare) {
    array.spare = 0;
  } else if (index == array.free_from) {
    array.free_from = index + 1;
  }
}

/** Notes that a slot is free; of two below `free_from` the higher one becomes the limit. */
inline void give_slot(qk_mem_ptr_array& array, std::int32_t index) {
  if (array.slices != nullptr) [[unlikely]]
    array.slices->values()[index] = 0;
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
