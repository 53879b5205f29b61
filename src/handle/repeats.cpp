#include "handle/repeats.h"

#include <algorithm>
#include <memory>
#include <tuple>

#include "core/registry.h"
#include "core/system_memory.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** The marks are bits of `baselined`. To a report every value but 0 means the same. */
constexpr std::uint8_t kRepeat = 0x80;
constexpr std::uint8_t kTrackerOfEarlier = 0x40;

struct Entry {
  const void* address;
  std::int32_t index;

  bool operator<(const Entry& other) const {
    return std::tie(address, index) < std::tie(other.address, other.index);
  }
};

void mark(qk_mem_ptr& slot, const qk_mem_ptr& earlier) {
  int marks = qk::load(slot.baselined) | kRepeat;
  if (slot.tracker == earlier.tracker) marks |= kTrackerOfEarlier;
  qk::store(slot.baselined, static_cast<std::uint8_t>(marks));
}

/** Marks the entries of one address. There are few of them. */
void mark_group(qk_mem_ptr_array& array, const Entry* first, const Entry* end) {
  for (const Entry* later = first + 1; later < end; ++later) {
    for (const Entry* earlier = first; earlier != later; ++earlier) {
      mark(array.ptrs[later->index], array.ptrs[earlier->index]);
    }
  }
}

void mark_sorted(qk_mem_ptr_array& array, Entry* entries) {
  const std::int32_t slots = slots_of(array);
  Entry* end = entries;
  for (std::int32_t i = 1; i < slots; ++i) {
    if (void* address = address_in(array.ptrs[i])) *end++ = {address, i};
  }
  std::sort(entries, end);
  for (Entry* first = entries; first != end;) {
    Entry* next = std::find_if(first, end,
                               [&](const Entry& entry) { return entry.address != first->address; });
    mark_group(array, first, next);
    first = next;
  }
}

void mark_compared(qk_mem_ptr_array& array) {
  const std::int32_t slots = slots_of(array);
  for (std::int32_t i = 2; i < slots; ++i) {
    const void* address = address_in(array.ptrs[i]);
    for (std::int32_t j = 1; address != nullptr && j < i; ++j) {
      if (address_in(array.ptrs[j]) == address) mark(array.ptrs[i], array.ptrs[j]);
    }
  }
}

/** Up to this number of slots comparing them all is cheaper than allocating memory to sort them. */
constexpr std::int32_t kFewSlots = 80;

}  // namespace

void mark_repeats(qk_mem_handle& handle, qk_mem_ptr_array& array) {
  const HandleLock lock(handle);
  const std::int32_t slots = slots_of(array);
  if (slots <= kFewSlots) {
    mark_compared(array);
    return;
  }
  const std::unique_ptr<Entry, own_memory::Release> entries(static_cast<Entry*>(
      own_memory::allocate_zeroed(static_cast<std::size_t>(slots), sizeof(Entry))));
  if (entries == nullptr) {
    mark_compared(array);
  } else {
    mark_sorted(array, entries.get());
  }
}

bool is_repeat(const qk_mem_ptr& record) { return (record.baselined & kRepeat) != 0; }

bool has_tracker_of_earlier(const qk_mem_ptr& record) {
  return (record.baselined & kTrackerOfEarlier) != 0;
}

}  // namespace qk::mem
