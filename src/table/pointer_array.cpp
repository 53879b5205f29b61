#include "table/pointer_array.h"

#include <cerrno>
#include <cstring>

#include "support/system_memory.h"
#include "table/slot_index.h"

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

/** The index of an array; null if it has none. */
SlotIndex* present_index(const qk_mem_ptr_array& array) {
  return slots_of(array) == 0 ? nullptr : index_of(array);
}

/** Finds the first free slot from `from` on, or from 1 if that is higher. */
std::int32_t search_free_slot_from(const qk_mem_ptr_array& array, std::int32_t from) {
  const SlotIndex* index = present_index(array);
  if (index == nullptr) return walk(array, from > 1 ? from : 1, nullptr);
  // No slot below `from` is free, except the spare one, which was tried before.
  const std::int32_t slot = index->lowest_free();
  return slot < array.capacity ? slot : kNoSlot;
}

/** The accounting counts the bytes of slots in 32 bits, so an array can't have more. */
bool is_countable(std::int32_t capacity) {
  return static_cast<std::uint64_t>(capacity) * kSlotBytes <= UINT32_MAX;
}

std::size_t bytes_with_index(std::int32_t capacity) {
  const auto slots = static_cast<std::size_t>(capacity);
  return slots * kSlotBytes + (capacity < kLargeArray ? 0 : sizeof(SlotIndex*));
}

qk_mem_ptr* resize_slots(qk_mem_ptr* slots, std::int32_t capacity) {
  return static_cast<qk_mem_ptr*>(is_countable(capacity)
                                      ? own_memory::resize(slots, bytes_with_index(capacity))
                                      : out_of_memory());
}

/**
 * Puts the index behind the slots of a grown array. An index that is too small is replaced by one
 * of twice the size. Without memory for that, the next growth tries again.
 */
void renew_index(SlotIndex* index, qk_mem_ptr* slots, std::int32_t capacity) {
  if (capacity < kLargeArray) return;
  if (index == nullptr || !index->has_room_for(capacity)) {
    SlotIndex::destroy(index);
    index = SlotIndex::make(slots, capacity);
  }
  index_behind(slots, capacity) = index;
}

void free_slots(qk_mem_ptr* first, const qk_mem_ptr* end) {
  std::memset(static_cast<void*>(first), 0,
              static_cast<std::size_t>(end - first) * sizeof(qk_mem_ptr));
}

}  // namespace

bool enlarge(qk_mem_ptr_array& array, std::int32_t capacity) {
  const std::int32_t before = slots_of(array);
  SlotIndex* const index = present_index(array);
  qk_mem_ptr* const slots = resize_slots(array.ptrs, capacity);
  // The record of a realloc that fails too must have a place to return to.
  if (slots == nullptr && search_slot(array, &set_aside_mark) != kNoSlot) return false;
  if (slots == nullptr) {
    const int error = errno;
    own_memory::release(array.ptrs);
    SlotIndex::destroy(index);
    errno = error;
  } else {
    free_slots(slots + before, slots + capacity);
    renew_index(index, slots, capacity);
  }
  qk::publish(array.ptrs, slots);
  qk::store(array.capacity, capacity);
  return slots != nullptr;
}

std::int32_t search_free_slot(qk_mem_ptr_array& array) {
  array.spare = 0;
  const std::int32_t index = search_free_slot_from(array, array.free_from);
  if (index == kNoSlot) return search_free_slot_from(array, 1);
  array.free_from = index;
  return index;
}

std::int32_t search_slot(const qk_mem_ptr_array& array, const void* address) {
  const SlotIndex* index = present_index(array);
  if (index == nullptr) return walk(array, 1, address);
  const std::int32_t slot = index->lowest_holding(array.ptrs, address);
  return slot == 0 ? kNoSlot : slot;
}

void add_to_index_of_large(const qk_mem_ptr_array& array, std::int32_t index) {
  if (SlotIndex* slots = index_of(array)) slots->add(array.ptrs, index);
}

void remove_from_index_of_large(const qk_mem_ptr_array& array, std::int32_t index) {
  if (SlotIndex* slots = index_of(array)) slots->remove(array.ptrs, index);
}

}  // namespace qk::mem
