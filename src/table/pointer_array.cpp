#include "table/pointer_array.h"

#include <cerrno>
#include <cstring>

#include "support/system_memory.h"
#include "table/slot_index.h"

namespace qk::mem {
namespace {

/** Finds the first slot from `first` on that holds an address, or is free if that is null. */
std::int32_t walk(const qk_mem_ptr_array& array, std::int32_t first, const void* address) {
  const std::int32_t slots = slots_of(array);
#pragma GCC unroll 4
  for (std::int32_t index = first; index < slots; ++index) {
    if (qk::load(array.ptrs[index].address) == address) return index;
  }
  return kNoSlot;
}

/** Finds the first slot from 1 on that holds an address. */
[[gnu::always_inline]] inline std::int32_t first_holding(const qk_mem_ptr_array& array,
                                                         const void* address) {
  SlotIndex* const index = index_of(array);
  if (index == nullptr) return walk(array, 1, address);
  const std::int32_t slot = index->lowest_holding(array.ptrs, address);
  return slot == 0 ? kNoSlot : slot;
}

/** Whether an array keeps the notes about its free slots that are beside `index`. */
bool keeps_notes(const qk_mem_ptr_array& array) {
  return qk::kShortcuts && array.capacity > kSmallArray && array.larger.index == nullptr;
}

/** Makes the index of an array that can have one. Without memory for it the next search tries. */
void provide_index(qk_mem_ptr_array& array) {
  if (!keeps_notes(array) || slots_of(array) == 0) return;
  array.larger.index = SlotIndex::make(array.ptrs, array.capacity);
}

/**
 * Finds the lowest free slot by the notes, and corrects them. It doesn't walk over a full array, as
 * each growth would take as long as the array is.
 */
std::int32_t lowest_free_by_notes(qk_mem_ptr_array& array) {
  if (is_full(array)) return kNoSlot;
  auto& notes = array.larger;
  const std::int32_t likely = notes.spare != 0 ? notes.spare : notes.free_from;
  if (holds(array, likely, nullptr)) return likely;
  notes.spare = 0;
  std::int32_t index = walk(array, notes.free_from, nullptr);
  if (index == kNoSlot) index = walk(array, 1, nullptr);
  if (index != kNoSlot) notes.free_from = index;
  return index;
}

void note_occupied(qk_mem_ptr_array& array, std::int32_t index) {
  auto& notes = array.larger;
  if (index == notes.spare) {
    notes.spare = 0;
  } else if (index == notes.free_from) {
    notes.free_from = index + 1;
  }
}

/**
 * Only one free slot may lie below `free_from`: with two, the limit drops to the higher one.
 */
void note_vacated(qk_mem_ptr_array& array, std::int32_t index) {
  auto& notes = array.larger;
  if (index >= notes.free_from) return;
  if (notes.spare == 0) {
    notes.spare = index;
  } else if (index < notes.spare) {
    notes.free_from = notes.spare;
    notes.spare = index;
  } else {
    notes.free_from = index;
  }
}

/** The accounting counts the bytes of slots in 32 bits, so an array can't have more. */
bool is_countable(std::int32_t capacity) {
  return static_cast<std::uint64_t>(capacity) * kSlotBytes <= UINT32_MAX;
}

qk_mem_ptr* resize_slots(qk_mem_ptr* slots, std::int32_t capacity) {
  return static_cast<qk_mem_ptr*>(
      is_countable(capacity)
          ? own_memory::resize(slots, static_cast<std::size_t>(capacity) * kSlotBytes)
          : out_of_memory());
}

/**
 * Sets up what finds the slots of an array that has grown. All slots of a small one are free. Of a
 * larger one the new ones are. An index that is too small is dropped; the next search makes another.
 */
void renew_search(qk_mem_ptr_array& array, const qk_mem_ptr* slots, std::int32_t before,
                  std::int32_t capacity) {
  if (capacity > kSmallArray) {
    SlotIndex* const index = index_of(array);
    if (index != nullptr && index->has_room_for(capacity)) return;
    SlotIndex::destroy(index);
    array.larger = {.index = nullptr, .spare = 0, .free_from = before};
  } else if (qk::kShortcuts) {
    array.free_slots = (std::uint32_t{1} << kSmallArray) - 2;
    set_print(array.prints, 0, print_of(slots));
  }
}

/** Releases the slots of an array that can't grow to `capacity`, with what finds them. */
void lose_slots(qk_mem_ptr_array& array, std::int32_t capacity) {
  const int error = errno;
  own_memory::release(array.ptrs);
  SlotIndex::destroy(index_of(array));
  array.free_slots = 0;
  if (capacity > kSmallArray) array.larger = {};
  errno = error;
}

void clear_slots(qk_mem_ptr* first, const qk_mem_ptr* end) {
  std::memset(static_cast<void*>(first), 0,
              static_cast<std::size_t>(end - first) * sizeof(qk_mem_ptr));
}

}  // namespace

bool enlarge(qk_mem_ptr_array& array, std::int32_t capacity) {
  const std::int32_t before = slots_of(array);
  qk_mem_ptr* const slots = resize_slots(array.ptrs, capacity);
  // The record of a realloc that fails too must have a place to return to.
  if (slots == nullptr && first_holding(array, &set_aside_mark) != kNoSlot) return false;
  if (slots == nullptr) {
    lose_slots(array, capacity);
  } else {
    clear_slots(slots + before, slots + capacity);
    renew_search(array, slots, before, capacity);
  }
  qk::publish(array.ptrs, slots);
  qk::store(array.capacity, capacity);
  return slots != nullptr;
}

std::int32_t lowest_free_slot_of_larger(qk_mem_ptr_array& array) {
  if (const SlotIndex* index = index_of(array)) {
    const std::int32_t slot = index->lowest_free();
    return slot < array.capacity ? slot : kNoSlot;
  }
  return keeps_notes(array) ? lowest_free_by_notes(array) : walk(array, 1, nullptr);
}

std::int32_t search_slot(qk_mem_ptr_array& array, const void* address) {
  if (address == nullptr) return kNoSlot;
  if (holds(array, array.last, address)) return array.last;
  provide_index(array);
  const std::int32_t index = first_holding(array, address);
  if (index != kNoSlot) array.last = index;
  return index;
}

void index_slot_of_larger(qk_mem_ptr_array& array, std::int32_t index) {
  if (SlotIndex* slots = index_of(array)) {
    slots->add(array.ptrs, index);
  } else if (keeps_notes(array)) {
    note_occupied(array, index);
  }
}

void unindex_slot_of_larger(qk_mem_ptr_array& array, std::int32_t index) {
  if (SlotIndex* slots = index_of(array)) slots->remove(array.ptrs, index);
}

void free_slot_of_larger(qk_mem_ptr_array& array, std::int32_t index) {
  if (SlotIndex* slots = index_of(array)) {
    slots->remove(array.ptrs, index);
  } else if (keeps_notes(array)) {
    note_vacated(array, index);
  }
  clear_slot(array.ptrs[index]);
  qk::bump(array.used, -1);
}

}  // namespace qk::mem
