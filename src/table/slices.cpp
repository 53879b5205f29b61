#include "table/slices.h"

#include <cstddef>
#include <cstdlib>

#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"
#include "table/overhead.h"
#include "table/pointer_array.h"
#include "table/record_steps.h"

namespace qk::mem {
namespace {

/** Slots from which on a search by slices pays for them. */
constexpr std::int32_t kLargeArray = 512;

std::size_t bytes_for(std::int32_t slots) {
  return sizeof(qk_mem_slices) + static_cast<std::size_t>(slots) * sizeof(std::uint16_t);
}

/** Slices of what an array holds, with room to grow, or null. */
qk_mem_slices* make_slices(const qk_mem_ptr_array& array) {
  const std::int32_t room = array.capacity > INT32_MAX / 2 ? INT32_MAX : 2 * array.capacity;
  auto* slices = static_cast<qk_mem_slices*>(std::calloc(1, bytes_for(room)));
  if (slices == nullptr) return nullptr;
  slices->room = room;
  for (std::int32_t i = 1; i < array.capacity; ++i) {
    const void* address = address_in(array.ptrs[i]);
    if (address != nullptr) slices->values()[i] = slice_of(address);
  }
  return slices;
}

/**
 * Takes a record of bookkeeping out of the books. Counted off as what it is, unlike records that
 * qk_mem_free_ptr() removes: the handle lives on, and its data stays what it was.
 */
void withdraw_overhead(qk_mem_handle& handle, const void* address, const Site& site) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = find_slot(array, address);
  if (index <= 0) return;
  const qk_mem_ptr record = read_slot(array.ptrs[index]);
  clear_slot(array.ptrs[index]);
  give_slot(array, index);
  const bool single_threaded = qk::is_single_threaded();
  count_record(handle, record.kind, -1, single_threaded);
  sum_bytes(handle, Totals::kOverhead, record.kind, 0 - bytes_of(record), single_threaded);
  next_seq();
  announce_released(lines::kFreed, handle_memory_site(site), handle.id, event::kFree, record,
                    release_of(record));
}

}  // namespace

void keep_slices(qk_mem_handle& handle, qk_mem_ptr_array& array, const Site& site) {
  if (array.capacity < kLargeArray) return;
  if (array.slices != nullptr && array.capacity <= array.slices->room) return;
  drop_slices(handle, array, site);
  array.slices = make_slices(array);
  if (array.slices == nullptr) return;
  if (!record_handle_memory(handle, array.slices, bytes_for(array.slices->room), site)) {
    std::free(array.slices);
    array.slices = nullptr;
  }
}

void drop_slices(qk_mem_handle& handle, qk_mem_ptr_array& array, const Site& site) {
  qk_mem_slices* slices = array.slices;
  if (slices == nullptr) return;
  array.slices = nullptr;
  withdraw_overhead(handle, slices, site);
  give_back(slices);
}

}  // namespace qk::mem
