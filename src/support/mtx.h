#ifndef SUPPORT_MTX_H_
#define SUPPORT_MTX_H_

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>

#include "support/assertion.h"
#include "support/thread_annotations.h"

namespace qk {

/**
 * A recursive lock: the thread that holds it can lock it again. Every lock() needs its own
 * unlock(). Works with MtxLock (support/mtx_lock.h), std::lock_guard and std::unique_lock. A static
 * one can be used before any constructor has run and after exit handlers and destructors have run,
 * because it is constant initialised and has nothing to destroy. It must not be destroyed while a
 * thread holds it or waits for it. Nothing fails, and errno is preserved. Not for use by several
 * processes. A fork copies its state: a lock that another thread held stays locked in the child.
 */
class QK_CAPABILITY("mutex") Mtx {
 public:
  constexpr Mtx() noexcept = default;
  Mtx(const Mtx&) = delete;
  Mtx& operator=(const Mtx&) = delete;

  /** Takes the lock. Waits while another thread holds it. */
  void lock() noexcept QK_ACQUIRE() {
    if (!take_at_once()) wait_and_take();
  }

  /** Takes the lock unless another thread holds it. Returns whether the caller holds it now. */
  [[nodiscard]] bool try_lock() noexcept QK_TRY_ACQUIRE(true) { return take_at_once(); }

  /** Undoes one lock() or successful try_lock() of the calling thread, which must hold the lock. */
  void unlock() noexcept QK_RELEASE() {
    if (--depth_ != 0) return;
    owner_.store(0, std::memory_order_relaxed);
    if (release() == kContended) wake_one();
  }

  /** Returns whether the calling thread holds the lock. */
  [[nodiscard]] bool held() const noexcept {
    return owner_.load(std::memory_order_relaxed) == this_thread();
  }

  /** The first line of functions that rely on the lock. Does nothing in users' builds. */
  void assert_held() const noexcept QK_ASSERTS_HELD() {
    if constexpr (kAssertions) {
      if (!held()) assertion_failed("the lock that is relied on here is not held");
    }
  }

 private:
  enum : int { kFree, kLocked, kContended };

  /** The thread's address, which pthread_self() returns too, but without a call. */
  [[nodiscard]] static std::uintptr_t this_thread() noexcept {
    return reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
  }

  bool take_at_once() noexcept {
    if (held()) {
      ++depth_;
      return true;
    }
    if (!acquire()) return false;
    become_owner();
    return true;
  }

  /**
   * With one thread, nothing else can change the word, so plain accesses are enough. They store the
   * same values, because the holder can start a thread before it unlocks.
   */
  bool acquire() noexcept {
    int expected = kFree;
    if (!__libc_single_threaded) {
      return state_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire,
                                            std::memory_order_relaxed);
    }
    if (state_.load(std::memory_order_relaxed) != kFree) return false;
    state_.store(kLocked, std::memory_order_relaxed);
    return true;
  }

  int release() noexcept {
    if (!__libc_single_threaded) return state_.exchange(kFree, std::memory_order_release);
    state_.store(kFree, std::memory_order_relaxed);
    return kFree;
  }

  void become_owner() noexcept {
    owner_.store(this_thread(), std::memory_order_relaxed);
    depth_ = 1;
  }

  void wait_and_take() noexcept;
  void wake_one() noexcept;

  // kContended: a thread may be asleep on the word, so unlock() has to wake one.
  std::atomic<int> state_{kFree};
  unsigned depth_{0};                     // accessed by the owner only
  std::atomic<std::uintptr_t> owner_{0};  // equals a thread's address only if that thread holds
};

static_assert(sizeof(Mtx) == 16);

}  // namespace qk

#endif  // SUPPORT_MTX_H_
