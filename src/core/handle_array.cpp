#include "core/handle_array.h"

#include <mutex>

#include "core/system_memory.h"

namespace qk::mem {
namespace {

/** Handle arrays that were replaced while other threads could be reading them. */
struct Retired {
  qk_mem_handle** array;
  Retired* next;
};
constinit Retired* retired QK_GUARDED_BY(Qk_mem_mtx) = nullptr;

/** Near the end of the handle array, a thread that creates a handle may be replacing it. */
constexpr std::int32_t kGrowthMargin = 10;

bool growth_is_near() {
  return qk::load(Qk_mem_num_handles) > qk::load(Qk_mem_avail_handles) - kGrowthMargin;
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

void replace_handle_array(qk_mem_handle** array, std::int32_t count) {
  assert_registry_held();
  if (fast_slots.count != 0) {
    if (count != 0) qk::publish(fast_slots.slots, array);
    qk::publish(fast_slots.count, static_cast<std::uint32_t>(count));
  }
  if (count < real_slots) qk::publish(real_slots, count);
  qk::publish(Qk_mem_handles, array);
  qk::publish(real_slots, count);
}

void release_handle_array(qk_mem_handle** array) {
  assert_registry_held();
  if (qk::is_single_threaded()) {
    own_memory::release(array);
    return;
  }
  // Look-ups take no lock, so another thread may be reading this array. Arrays grow in large steps,
  // so there are few old ones: they are kept reachable instead.
  if (auto* entry = static_cast<Retired*>(own_memory::allocate(sizeof(Retired)))) {
    *entry = {array, retired};
    retired = entry;
  }
}

}  // namespace qk::mem
