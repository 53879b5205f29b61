#ifndef QKMEM_CORE_REGISTRY_H_
#define QKMEM_CORE_REGISTRY_H_

#include <cstdint>
#include <cstdio>
#include <mutex>

#include "core/records.h"
#include "support/mtx.h"
#include "support/relaxed.h"
#include "support/tls.h"

/**
 * All state of the process: the live handles, the tags, the counters. Each variable is constant
 * initialised and is never destroyed, so that calls from other files' static constructors and
 * destructors find it in order.
 */
extern qk_mem_handle** Qk_mem_handles;     // slot n-1 holds handle n
extern std::int32_t Qk_mem_avail_handles;  // grows by 512, also when the array couldn't follow
extern std::int32_t Qk_mem_num_handles;
extern qk_mem_ptr Qk_mem_handles_ptr;  // the handle array's record, once handle 1 is gone
extern std::uint32_t Qk_mem_seq;       // counts events; stamped into records
extern qk_mem_tag Qk_mem_tags[32];
extern std::int32_t Qk_mem_num_tags;
extern qk_mem_tag* Qk_mem_tags_hash[32];
extern qk_mem_tag Qk_mem_global_tag;
extern qk::Mtx Qk_mem_mtx;
extern qk::TLS<int>& Qk_mem_error;
extern std::int32_t Qk_mem_initialized;
extern std::int64_t Qk_mem_init_heap;
extern std::int64_t Qk_mem_base_heap;
extern std::uint64_t Qk_mem_blocksize;  // bytes that a block's header takes
extern std::int32_t Qk_mem_ptr_display_size;

namespace qk::mem {

inline constexpr std::int32_t kHandleStep = 512;
inline constexpr int kMaxTags = 32;

/**
 * Guards the registry. Re-entrant. Wherever a handle's mutex is held as well, this one was taken
 * first.
 */
class RegistryLock {
 public:
  RegistryLock() : lock_(Qk_mem_mtx) {}

 private:
  std::lock_guard<qk::Mtx> lock_;
};

/** Guards a handle's pointer arrays, counters and blocks; nothing where the handle has no mutex. */
class HandleLock {
 public:
  explicit HandleLock(const qk_mem_handle& handle) : mtx_(handle.mtx) {
    if (mtx_ != nullptr) mtx_->lock();
  }
  HandleLock(const HandleLock&) = delete;
  HandleLock& operator=(const HandleLock&) = delete;
  ~HandleLock() { release(); }

  /** Lets go before the end of the scope. */
  void release() {
    if (mtx_ != nullptr) mtx_->unlock();
    mtx_ = nullptr;
  }

 private:
  qk::Mtx* mtx_;
};

/** Both locks in the order in which they are taken wherever both are held. */
class RegistryAndHandleLock {
 public:
  explicit RegistryAndHandleLock(const qk_mem_handle& handle) : handle_(handle) {}

 private:
  RegistryLock registry_;
  HandleLock handle_;
};

/** Counts an event and returns its number. */
inline std::uint32_t next_seq() { return qk::add(Qk_mem_seq, 1); }

/**
 * Handle array with the number of slots that it really has: Qk_mem_avail_handles is ahead of it
 * when a growth failed.
 *
 * Readable without a lock. The array is published before the count that goes with it, and an array
 * that was replaced stays readable, so whoever reads the count first can't run over the end.
 */
struct HandleSlots {
  qk_mem_handle** slots;
  std::int32_t count;

  [[nodiscard]] qk_mem_handle* at(std::uint32_t index) const {
    return index < static_cast<std::uint32_t>(count) ? qk::load_pointer(slots[index]) : nullptr;
  }

  /** The handle of any number, which a caller may have made up; null where there is none. */
  [[nodiscard]] qk_mem_handle* numbered(std::int32_t hid) const {
    return at(static_cast<std::uint32_t>(hid) - 1);
  }
};

/** Slots of Qk_mem_handles, 0 without one; Qk_mem_avail_handles counts also those not to be had. */
extern std::int32_t real_slots;

[[nodiscard]] inline HandleSlots handle_slots() {
  const std::int32_t count = __atomic_load_n(&real_slots, __ATOMIC_ACQUIRE);
  qk_mem_handle** slots = qk::load_pointer(Qk_mem_handles);
  return {slots, slots == nullptr ? 0 : count};
}

/**
 * The same for the shortest way to a handle: no slots before the library has started up and after
 * the registry is retired. The array of a count above 0 can be read as it stands.
 */
struct QuickSlots {
  qk_mem_handle** slots;
  std::uint32_t count;
};
extern QuickSlots quick_slots;

/** The handle of any number, or null; also where the general way would find one. */
[[nodiscard]] inline qk_mem_handle* handle_at_once(std::int32_t hid) {
  const std::uint32_t count = __atomic_load_n(&quick_slots.count, __ATOMIC_ACQUIRE);
  const std::uint32_t index = static_cast<std::uint32_t>(hid) - 1;
  return index < count ? qk::load_pointer(qk::load_pointer(quick_slots.slots)[index]) : nullptr;
}

/** Lets handle_at_once() find handles, once the start-up is over. Needs the registry's lock. */
void open_quick_slots();

/** Makes `array` of `count` slots the handle array. Needs the registry's lock. */
void replace_handle_array(qk_mem_handle** array, std::int32_t count);

/**
 * From now on no handle is given the overhead handle's number if the process has several threads.
 * For the clean-up, which deletes that handle while other threads may still make theirs.
 */
void retire_overhead_number();

/** The slot from which on new handles take theirs. */
[[nodiscard]] std::int32_t first_slot_for_new();

/**
 * From now on memory of handles isn't freed any more if the process has several threads. For a
 * process that is being ended while they go on.
 */
void keep_memory();
[[nodiscard]] bool keeps_memory();

/** Frees memory that a handle held or consisted of, as long as that is done. */
void give_back(void* memory);

/** Gives a handle array that was replaced back to the system, once nobody can be reading it. */
void release_handle_array(qk_mem_handle** array);

/**
 * Takes the handle array out of use, at the end of the process, and returns it. Handles that are
 * still live stay with the process, where leak checkers find them in use. Needs the registry's
 * lock.
 */
[[nodiscard]] qk_mem_handle** retire_registry();

/**
 * Puts handles that the registry's end has left live back into a new handle array, if the process
 * has several threads: one that still goes by an old number must not come upon another's handle.
 * Needs the registry's lock.
 */
void readmit_left_handles(qk_mem_handle** array, std::int32_t count);

/**
 * Takes a handle out of the registry, or out of those that were left behind when the registry was
 * retired: other threads can go on after that. Needs the registry's lock.
 */
void withdraw(qk_mem_handle& handle);

/** Calls `visit` with every live handle, in the order of the numbers. Needs the registry's lock. */
template <class Visit>
void for_each_handle(Visit visit) {
  const HandleSlots handles = handle_slots();
  for (std::int32_t i = 0; i < handles.count; ++i) {
    if (qk_mem_handle* handle = handles.at(static_cast<std::uint32_t>(i))) visit(*handle);
  }
}

/**
 * Calls `visit` with every registered tag, in the order of registration, without the global one.
 */
template <class Visit>
void for_each_tag(Visit visit) {
  for (std::int32_t i = 0; i < Qk_mem_num_tags; ++i) visit(Qk_mem_tags[i]);
}

}  // namespace qk::mem

#endif  // QKMEM_CORE_REGISTRY_H_
