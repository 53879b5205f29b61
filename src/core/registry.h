#ifndef QKMEM_CORE_REGISTRY_H_
#define QKMEM_CORE_REGISTRY_H_

#include <cstdint>
#include <cstdio>

#include "core/records.h"
#include "support/mtx.h"
#include "support/shared_variable.h"
#include "support/tls.h"

#pragma GCC visibility push(hidden)
/**
 * The state of the process: the live handles, the tags, the counters. Every variable is constant
 * initialized and never destroyed, so that static constructors and destructors of other files can
 * use the library.
 */
extern qk::Mtx Qk_mem_mtx;
extern qk_mem_handle** Qk_mem_handles;     // slot n-1 is handle n
extern std::int32_t Qk_mem_avail_handles;  // raised by 512 even when the array fails to grow
extern std::int32_t Qk_mem_num_handles;
// The record of the handle array, once handle 1 is deleted.
extern qk_mem_ptr Qk_mem_handles_ptr QK_GUARDED_BY(Qk_mem_mtx);
extern std::uint32_t Qk_mem_seq;  // counts events; records keep their number
extern qk_mem_tag Qk_mem_tags[32] QK_GUARDED_BY(Qk_mem_mtx);
extern std::int32_t Qk_mem_num_tags QK_GUARDED_BY(Qk_mem_mtx);
extern qk_mem_tag* Qk_mem_tags_hash[32] QK_GUARDED_BY(Qk_mem_mtx);
extern qk_mem_tag Qk_mem_global_tag;
extern qk::TLS<int>& Qk_mem_error;
extern std::int32_t Qk_mem_initialized;
extern std::int64_t Qk_mem_init_heap;
extern std::int64_t Qk_mem_base_heap;
extern std::uint64_t Qk_mem_blocksize;  // bytes of a block's header
extern std::int32_t Qk_mem_ptr_display_size;
#pragma GCC visibility pop

namespace qk::mem {

inline constexpr int kMaxTags = 32;

/** Leaves the code of a failure as the thread's error code. 0, success, leaves that as it is. */
inline int leave_code(int code) {
  if (code != 0) Qk_mem_error.set(code);
  return code;
}

/** To be called first in functions that rely on the registry's lock. */
inline void assert_registry_held() QK_ASSERTS_HELD(Qk_mem_mtx) { Qk_mem_mtx.assert_held(); }

/**
 * To be called first in functions that rely on a handle's lock, which a handle without a mutex does
 * not need.
 */
inline void assert_held(const qk_mem_handle& handle) {
  if constexpr (qk::kAssertions) {
    if (handle.mtx != nullptr) handle.mtx->assert_held();
  }
}

/** Guards the registry. Re-entrant. A thread that also locks a handle takes this lock first. */
class QK_SCOPED_CAPABILITY RegistryLock {
 public:
  RegistryLock() QK_ACQUIRE(Qk_mem_mtx) { Qk_mem_mtx.lock(); }
  RegistryLock(const RegistryLock&) = delete;
  RegistryLock& operator=(const RegistryLock&) = delete;
  ~RegistryLock() QK_RELEASE() { Qk_mem_mtx.unlock(); }
};

/**
 * Guards a handle's pointer arrays, counters and blocks. Does nothing if the handle has no mutex.
 */
class HandleLock {
 public:
  explicit HandleLock(const qk_mem_handle& handle) : mtx_(handle.mtx) {
    if (mtx_ != nullptr) mtx_->lock();
  }
  HandleLock(const HandleLock&) = delete;
  HandleLock& operator=(const HandleLock&) = delete;
  ~HandleLock() { release(); }

  /** Unlocks before the end of the scope. */
  void release() QK_UNCHECKED_LOCKING {
    if (mtx_ != nullptr) mtx_->unlock();
    mtx_ = nullptr;
  }

 private:
  qk::Mtx* mtx_;
};

/** Takes both locks, in the only order in which they may be taken. */
class QK_SCOPED_CAPABILITY RegistryAndHandleLock {
 public:
  explicit RegistryAndHandleLock(const qk_mem_handle& handle) QK_ACQUIRE(Qk_mem_mtx)
      : handle_(handle) {}
  RegistryAndHandleLock(const RegistryAndHandleLock&) = delete;
  RegistryAndHandleLock& operator=(const RegistryAndHandleLock&) = delete;
  ~RegistryAndHandleLock() QK_RELEASE() = default;

 private:
  RegistryLock registry_;
  HandleLock handle_;
};

/** Counts an event and returns its number. */
inline std::uint32_t next_seq() { return qk::add(Qk_mem_seq, 1); }

/**
 * Calls `visit` with every registered tag, in the order of registration, without the global one.
 * Needs the registry's lock.
 */
template <class Visit>
void for_each_tag(Visit visit) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for (std::int32_t i = 0; i < Qk_mem_num_tags; ++i) visit(Qk_mem_tags[i]);
}

}  // namespace qk::mem

#endif  // QKMEM_CORE_REGISTRY_H_
