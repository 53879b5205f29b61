#include "core/handle_array.h"

#include <algorithm>
#include <mutex>

#include "support/number_set.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

/** Handle arrays that were replaced while other threads could be reading them. */
struct Retired {
  qk_mem_handle** array;
  Retired* next;
};
constinit Retired* retired QK_GUARDED_BY(Qk_mem_mtx) = nullptr;

/** The array that was made last, and its slots, of which only the first ones may be in use. */
constinit HandleSlots made_last QK_GUARDED_BY(Qk_mem_mtx) = {nullptr, 0};

/** Near the end of the handle array, a thread that creates a handle may be replacing it. */
constexpr std::int32_t kGrowthMargin = 10;

bool growth_is_near() {
  return qk::load(Qk_mem_num_handles) > qk::load(Qk_mem_avail_handles) - kGrowthMargin;
}

/** Few processes have more handles than this, and those need no memory for the set of slots. */
constexpr std::uint32_t kFewSlots = 4096;
constinit std::uint64_t words_for_few[kFewSlots / 64 + 1] QK_GUARDED_BY(Qk_mem_mtx) = {};

/**
 * The slots that have a handle. Its limit is below the number of slots if there was no memory for a
 * larger set; then all slots are searched.
 */
constinit qk::NumberSet taken QK_GUARDED_BY(Qk_mem_mtx) = {};
constinit std::uint64_t* words_of_taken QK_GUARDED_BY(Qk_mem_mtx) = nullptr;

/** Null if there is no memory. The words are zero. */
std::uint64_t* words_for_slots(std::uint32_t slots) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (slots <= kFewSlots) {
    std::fill(std::begin(words_for_few), std::end(words_for_few), std::uint64_t{0});
    return words_for_few;
  }
  return words_of_taken = static_cast<std::uint64_t*>(
             own_memory::allocate_zeroed(qk::NumberSet::words_for(slots), sizeof(std::uint64_t)));
}

/** Notes anew which slots of an array are taken, with room for twice as many. */
void note_all_taken(const HandleSlots& array) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  own_memory::release(words_of_taken);
  words_of_taken = nullptr;
  taken = {};
  const auto count = static_cast<std::uint32_t>(array.count);
  const std::uint32_t limit = count <= kFewSlots ? kFewSlots : 2 * count;
  std::uint64_t* words = words_for_slots(limit);
  if (words == nullptr) return;
  taken = qk::NumberSet(words, limit);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (array.slots[i] != nullptr) taken.add(i);
  }
}

std::int32_t search_free_slot(const HandleSlots& array, std::int32_t first) {
  qk_mem_handle** end = array.slots + array.count;
  qk_mem_handle** slot = std::find(array.slots + std::min(first, array.count), end, nullptr);
  return slot == end ? kNoHandleSlot : static_cast<std::int32_t>(slot - array.slots);
}

}  // namespace

constinit std::int32_t real_slots = 0;

constinit FastSlots fast_slots = {nullptr, 0};

qk_mem_handle* find_handle(std::int32_t hid) {
  if (hid < 1) return nullptr;
  std::unique_lock lock(Qk_mem_mtx, std::defer_lock);
  if (growth_is_near()) lock.lock();
  return handle_slots().numbered(hid);
}

void open_fast_slots() {
  assert_registry_held();
  qk::publish(fast_slots.slots, Qk_mem_handles);
  qk::publish(fast_slots.count, static_cast<std::uint32_t>(real_slots));
}

std::int32_t lowest_free_handle_slot(std::int32_t first) {
  assert_registry_held();
  const HandleSlots array = handle_slots();
  const std::uint32_t lowest = taken.lowest_missing();
  const bool is_noted = taken.limit() >= static_cast<std::uint32_t>(array.count);
  if (!is_noted || lowest < static_cast<std::uint32_t>(first)) {
    return search_free_slot(array, first);
  }
  return lowest < static_cast<std::uint32_t>(array.count) ? static_cast<std::int32_t>(lowest)
                                                          : kNoHandleSlot;
}

void fill_handle_slot(std::int32_t index, qk_mem_handle& handle) {
  assert_registry_held();
  const auto number = static_cast<std::uint32_t>(index);
  if (number < taken.limit()) taken.add(number);
  qk::publish(Qk_mem_handles[index], &handle);
}

void empty_handle_slot(std::int32_t index) {
  assert_registry_held();
  const auto number = static_cast<std::uint32_t>(index);
  qk::publish(Qk_mem_handles[index], nullptr);
  if (number < taken.limit()) taken.remove(number);
}

qk_mem_handle** handle_array_for(std::int32_t count) {
  assert_registry_held();
  const HandleSlots old = handle_slots();
  const bool may_be_read = !qk::is_single_threaded();
  if (may_be_read && old.slots != nullptr && old.slots == made_last.slots &&
      count <= made_last.count) {
    return old.slots;
  }
  // Old arrays are kept as long as they may be read. Doubling keeps them small.
  const auto slots = static_cast<std::size_t>(count) * (may_be_read ? 2 : 1);
  auto* array =
      static_cast<qk_mem_handle**>(own_memory::allocate_zeroed(slots, sizeof(qk_mem_handle*)));
  if (array == nullptr) return nullptr;
  std::copy_n(old.slots, old.count, array);
  made_last = {array, static_cast<std::int32_t>(slots)};
  return array;
}

void replace_handle_array(qk_mem_handle** array, std::int32_t count) {
  assert_registry_held();
  if (fast_slots.count != 0) {
    if (count != 0) qk::publish(fast_slots.slots, array);
    qk::publish(fast_slots.count, static_cast<std::uint32_t>(count));
  }
  const bool is_first = real_slots == 0;
  if (count < real_slots) qk::publish(real_slots, count);
  qk::publish(Qk_mem_handles, array);
  const bool has_outgrown_set = static_cast<std::uint32_t>(count) > taken.limit();
  if (is_first || count == 0 || has_outgrown_set) note_all_taken({array, count});
  qk::publish(real_slots, count);
}

void release_handle_array(qk_mem_handle** array) {
  assert_registry_held();
  if (array == Qk_mem_handles) return;
  if (qk::is_single_threaded()) {
    own_memory::release(array);
    return;
  }
  // Look-ups take no lock, so another thread may be reading this array. It is kept reachable instead.
  if (auto* entry = static_cast<Retired*>(own_memory::allocate(sizeof(Retired)))) {
    *entry = {array, retired};
    retired = entry;
  }
}

void lock_handle(const qk_mem_handle& handle) {
  if (handle.mtx != nullptr) handle.mtx->lock();
}

void unlock_handle(const qk_mem_handle& handle) {
  if (handle.mtx != nullptr) handle.mtx->unlock();
}

}  // namespace qk::mem
