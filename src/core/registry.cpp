#include "core/registry.h"

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

/** Holds a value that is constructed with the program and never destroyed. */
template <class T>
union Immortal {
  T value;
  constexpr Immortal() : value() {}
  ~Immortal() {}
};

constinit Immortal<qk::TLS<int>> error_of_threads;

/** Handle arrays that were replaced while other threads could be reading them. */
struct Retired {
  qk_mem_handle** array;
  Retired* next;
};
constinit Retired* retired = nullptr;

/** Handles that were live when the registry was retired. */
constinit qk_mem_handle* left_handles = nullptr;

constinit std::atomic<bool> memory_is_kept = false;
constinit std::atomic<bool> overhead_number_is_gone = false;

}  // namespace

constinit qk_mem_handle** Qk_mem_handles = nullptr;
constinit std::int32_t Qk_mem_avail_handles = 0;
constinit std::int32_t Qk_mem_num_handles = 0;
constinit qk_mem_ptr Qk_mem_handles_ptr = {};
constinit std::uint32_t Qk_mem_seq = 0;
constinit qk_mem_tag Qk_mem_tags[32] = {};
constinit std::int32_t Qk_mem_num_tags = 0;
constinit qk_mem_tag* Qk_mem_tags_hash[32] = {};
constinit qk_mem_tag Qk_mem_global_tag = {};
constinit qk::TLS<int>& Qk_mem_error = error_of_threads.value;
constinit qk::Mtx Qk_mem_mtx;
constinit std::int32_t Qk_mem_initialized = 0;
constinit std::int64_t Qk_mem_init_heap = 0;
constinit std::int64_t Qk_mem_base_heap = 0;
constinit std::uint64_t Qk_mem_blocksize = 0;
constinit std::int32_t Qk_mem_ptr_display_size = 16;

namespace qk::mem {

constinit std::int32_t real_slots = 0;

constinit QuickSlots quick_slots = {nullptr, 0};

void open_quick_slots() {
  qk::publish(quick_slots.slots, Qk_mem_handles);
  __atomic_store_n(&quick_slots.count, static_cast<std::uint32_t>(real_slots), __ATOMIC_RELEASE);
}

void replace_handle_array(qk_mem_handle** array, std::int32_t count) {
  if (quick_slots.count != 0) {
    // The same order of steps, but the array stays: who has read the count before it fell may
    // still look there, and the array is released only where nobody else can be running.
    if (count == 0) {
      __atomic_store_n(&quick_slots.count, 0, __ATOMIC_RELEASE);
    } else {
      qk::publish(quick_slots.slots, array);
      __atomic_store_n(&quick_slots.count, static_cast<std::uint32_t>(count), __ATOMIC_RELEASE);
    }
  }
  // A shrinking table (the clean-up's) lowers the count first, a growing one raises it last.
  if (count < real_slots) __atomic_store_n(&real_slots, count, __ATOMIC_RELEASE);
  qk::publish(Qk_mem_handles, array);
  __atomic_store_n(&real_slots, count, __ATOMIC_RELEASE);
}

void readmit_left_handles(qk_mem_handle** array, std::int32_t count) {
  if (__libc_single_threaded) return;
  for (qk_mem_handle** link = &left_handles; *link != nullptr;) {
    qk_mem_handle* handle = *link;
    if (handle->id > count || array[handle->id - 1] != nullptr) {
      link = &handle->next_left;
      continue;
    }
    *link = handle->next_left;
    array[handle->id - 1] = handle;
  }
}

void withdraw(qk_mem_handle& handle) {
  const HandleSlots handles = handle_slots();
  // After the registry's end another handle can have the number.
  if (handles.numbered(handle.id) == &handle) {
    qk::publish(handles.slots[handle.id - 1], nullptr);
    return;
  }
  for (qk_mem_handle** link = &left_handles; *link != nullptr; link = &(*link)->next_left) {
    if (*link != &handle) continue;
    *link = handle.next_left;
    return;
  }
}

qk_mem_handle** retire_registry() {
  for_each_handle([](qk_mem_handle& handle) {
    handle.next_left = left_handles;
    left_handles = &handle;
  });
  qk_mem_handle** array = Qk_mem_handles;
  replace_handle_array(nullptr, 0);
  qk::store(Qk_mem_avail_handles, 0);
  return array;
}

void retire_overhead_number() { overhead_number_is_gone = !__libc_single_threaded; }

std::int32_t first_slot_for_new() { return overhead_number_is_gone ? 1 : 0; }

void keep_memory() { memory_is_kept = !__libc_single_threaded; }

bool keeps_memory() { return memory_is_kept.load(std::memory_order_relaxed); }

void give_back(void* memory) {
  if (!keeps_memory()) std::free(memory);
}

void release_handle_array(qk_mem_handle** array) {
  if (__libc_single_threaded) {
    std::free(array);
    return;
  }
  // Look-ups take no lock, so another thread may stand in the middle of this array. Arrays grow in
  // large steps and the few old ones are kept reachable instead.
  if (auto* entry = static_cast<Retired*>(std::malloc(sizeof(Retired)))) {
    *entry = {array, retired};
    retired = entry;
  }
}

}  // namespace qk::mem
