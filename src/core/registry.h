#ifndef QKMEM_CORE_REGISTRY_H_
#define QKMEM_CORE_REGISTRY_H_

#include <cstdint>
#include <cstdio>
#include <mutex>

#include "core/records.h"
#include "support/mtx.h"
#include "support/shared_variable.h"
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
 * Calls `visit` with every registered tag, in the order of registration, without the global one.
 */
template <class Visit>
void for_each_tag(Visit visit) {
  for (std::int32_t i = 0; i < Qk_mem_num_tags; ++i) visit(Qk_mem_tags[i]);
}

}  // namespace qk::mem

#endif  // QKMEM_CORE_REGISTRY_H_
