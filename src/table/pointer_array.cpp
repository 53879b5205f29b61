#include "table/pointer_array.h"

#include "support/search.h"

namespace qk::mem {
namespace {

/** A slot from `index` on that holds an address, or null for a free one. */
std::int32_t walk(const qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  const std::int32_t slots = slots_of(array);
#pragma GCC unroll 4
  for (; index < slots; ++index) {
    if (qk::load(array.ptrs[index].address) == address) return index;
  }
  return kNoSlot;
}

/** The same by the slices. Different addresses can have the same one, so the record decides. */
std::int32_t walk_slices(const qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  const std::uint16_t slice = address == nullptr ? std::uint16_t{0} : slice_of(address);
  const std::int32_t slots = slots_of(array);
  while (true) {
    index = qk::find_value(array.slices->values(), index, slots, slice);
    if (index < 0) return kNoSlot;
    if (address_in(array.ptrs[index]) == address) return index;
    ++index;
  }
}

std::int32_t search(const qk_mem_ptr_array& array, std::int32_t index, const void* address) {
  return array.slices == nullptr ? walk(array, index, address) : walk_slices(array, index, address);
}

}  // namespace

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
