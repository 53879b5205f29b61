#include "core/handle_array.h"

#include "core/system_memory.h"

namespace qk::mem {
namespace {

/** Handle arrays that were replaced while other threads could be reading them. */
struct Retired {
  qk_mem_handle** array;
  Retired* next;
};
constinit Retired* retired QK_GUARDED_BY(Qk_mem_mtx) = nullptr;

}  // namespace

constinit std::int32_t real_slots = 0;

constinit QuickSlots quick_slots = {nullptr, 0};

void open_quick_slots() {
  assert_registry_held();
  qk::publish(quick_slots.slots, Qk_mem_handles);
  qk::publish(quick_slots.count, static_cast<std::uint32_t>(real_slots));
}

void replace_handle_array(qk_mem_handle** array, std::int32_t count) {
  assert_registry_held();
  if (quick_slots.count != 0) {
    if (count != 0) qk::publish(quick_slots.slots, array);
    qk::publish(quick_slots.count, static_cast<std::uint32_t>(count));
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
  // Look-ups take no lock, so another thread may stand in the middle of this array. Arrays grow in
  // large steps and the few old ones are kept reachable instead.
  if (auto* entry = static_cast<Retired*>(own_memory::allocate(sizeof(Retired)))) {
    *entry = {array, retired};
    retired = entry;
  }
}

}  // namespace qk::mem
