#include "handle/repeats.h"

#include <algorithm>
#include <memory>
#include <tuple>

#include "core/registry.h"
#include "support/system_memory.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** The marks are further bits of `baselined`. To a report every value but 0 means the same. */
constexpr std::uint8_t kRepeat = 0x80;
constexpr std::uint8_t kTrackerOfEarlier = 0x40;

struct Entry {
  const void* address;
  const void* tracker;
  std::int32_t index;

  [[nodiscard]] bool operator<(const Entry& other) const {
    return std::tie(address, tracker, index) < std::tie(other.address, other.tracker, other.index);
  }
};

/** Marks the entries of one address, which are sorted by tracker and index. */
void mark_group(qk_mem_ptr_array& array, const Entry* first, const Entry* end) {
  const std::int32_t earliest =
      std::min_element(first, end, [](const Entry& left, const Entry& right) {
        return left.index < right.index;
      })->index;
  for (const Entry* entry = first; entry != end; ++entry) {
    if (entry->index == earliest) continue;
    const bool tracker_repeats = entry != first && entry[-1].tracker == entry->tracker;
    add_marks(array.ptrs[entry->index], tracker_repeats ? kRepeat | kTrackerOfEarlier : kRepeat);
  }
}

void mark_sorted(qk_mem_ptr_array& array, Entry* entries) {
  const std::int32_t slots = slots_of(array);
  Entry* end = entries;
  for (std::int32_t i = 1; i < slots; ++i) {
    const qk_mem_ptr& slot = array.ptrs[i];
    if (void* address = recorded_address(slot)) *end++ = {address, qk::load(slot.tracker), i};
  }
  std::sort(entries, end);
  for (Entry* first = entries; first != end;) {
    Entry* next = std::find_if(first, end,
                               [&](const Entry& entry) { return entry.address != first->address; });
    mark_group(array, first, next);
    first = next;
  }
}

void mark(qk_mem_ptr& slot, const qk_mem_ptr& earlier) {
  const bool tracker_repeats = qk::load(slot.tracker) == qk::load(earlier.tracker);
  add_marks(slot, tracker_repeats ? kRepeat | kTrackerOfEarlier : kRepeat);
}

void mark_compared(qk_mem_ptr_array& array) {
  const std::int32_t slots = slots_of(array);
  for (std::int32_t i = 2; i < slots; ++i) {
    const void* address = recorded_address(array.ptrs[i]);
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
