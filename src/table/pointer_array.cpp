#include "table/pointer_array.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/system_memory.h"
#include "support/search.h"

namespace qk::mem {
namespace {

/** Finds the first slot from `index` on that holds an address, or is free if that is null. */
std::int32_t walk(const qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  const std::int32_t slots = slots_of(array);
#pragma GCC unroll 4
  for (; index < slots; ++index) {
    if (qk::load(array.ptrs[index].address) == address) return index;
  }
  return kNoSlot;
}

/** The same by fingerprints. Several addresses can share one, so the record decides. */
std::int32_t walk_fingerprints(const qk_mem_ptr_array& array, std::int32_t index,
                               const void* address) {
  const std::uint16_t wanted = address == nullptr ? std::uint16_t{0} : fingerprint_of(address);
  while (true) {
    index = qk::find_value(fingerprints_of(array), index, array.capacity, wanted);
    if (index < 0) return kNoSlot;
    if (address_in(array.ptrs[index]) == address) return index;
    ++index;
  }
}

std::int32_t search(const qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  const bool is_large = slots_of(array) >= kLargeArray;
  return is_large ? walk_fingerprints(array, index, address) : walk(array, index, address);
}

/** The accounting counts the bytes of slots in 32 bits, so an array can't have more. */
bool is_countable(std::int32_t capacity) {
  return static_cast<std::uint64_t>(capacity) * kSlotBytes <= UINT32_MAX;
}

std::size_t bytes_with_fingerprints(std::int32_t capacity) {
  const auto slots = static_cast<std::size_t>(capacity);
  return slots * kSlotBytes + (capacity < kLargeArray ? 0 : slots * sizeof(std::uint16_t));
}

qk_mem_ptr* resize_slots(qk_mem_ptr* slots, std::int32_t capacity) {
  return static_cast<qk_mem_ptr*>(is_countable(capacity)
                                      ? own_memory::resize(slots, bytes_with_fingerprints(capacity))
                                      : out_of_memory());
}

std::uint16_t fingerprint_in(const qk_mem_ptr& slot) {
  const void* address = address_in(slot);
  return address == nullptr ? std::uint16_t{0} : fingerprint_of(address);
}

/**
 * Moves the fingerprints behind the slots of a grown array, or computes them if there were none.
 */
void renew_fingerprints(qk_mem_ptr* slots, std::int32_t before, std::int32_t capacity) {
  std::uint16_t* fingerprints = fingerprints_behind(slots, capacity);
  if (fingerprints == nullptr) return;
  if (const std::uint16_t* old = fingerprints_behind(slots, before)) {
    std::memmove(fingerprints, old, static_cast<std::size_t>(before) * sizeof *old);
  } else {
    fingerprints[0] = 0;  // the array's own record is never searched for
    for (std::int32_t i = 1; i < before; ++i) fingerprints[i] = fingerprint_in(slots[i]);
  }
  std::fill(fingerprints + before, fingerprints + capacity, std::uint16_t{0});
}

void free_slots(qk_mem_ptr* first, const qk_mem_ptr* end) {
  std::memset(static_cast<void*>(first), 0,
              static_cast<std::size_t>(end - first) * sizeof(qk_mem_ptr));
}

}  // namespace

bool enlarge(qk_mem_ptr_array& array, std::int32_t capacity) {
  const std::int32_t before = slots_of(array);
  qk_mem_ptr* const slots = resize_slots(array.ptrs, capacity);
  if (slots == nullptr) {
    const int error = errno;
    own_memory::release(array.ptrs);
    errno = error;
  } else {
    renew_fingerprints(slots, before, capacity);
    free_slots(slots + before, slots + capacity);
  }
  qk::publish(array.ptrs, slots);
  qk::store(array.capacity, capacity);
  return slots != nullptr;
}

std::int32_t search_free_slot(qk_mem_ptr_array& array) {
  array.spare = 0;
  const std::int32_t index = search(array, array.free_from > 1 ? array.free_from : 1, nullptr);
  if (index == kNoSlot) return search(array, 1, nullptr);
  array.free_from = index;
  return index;
}

std::int32_t search_slot(const qk_mem_ptr_array& array, const void* address) {
  return search(array, 1, address);
}

}  // namespace qk::mem
