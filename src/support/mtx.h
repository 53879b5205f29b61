#ifndef SUPPORT_MTX_H_
#define SUPPORT_MTX_H_

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>

#include "support/assertion.h"
#include "support/thread_annotations.h"

namespace qk {

/**
 * Lock that the thread holding it may take again; every lock() needs an unlock() of its own.
 *
 * Serves MtxLock (support/mtx_lock.h), std::lock_guard and std::unique_lock. A static one is ready before any constructor runs
 * and stays usable after exit handlers and destructors have run: it is constant initialised and has
 * nothing to destroy. It must not be destroyed while a thread holds it or waits for it.
 *
 * Nothing fails, errno is kept. Not for use by several processes, and a fork copies it as it is: a
 * lock that another thread held stays locked in the child.
 */
class QK_CAPABILITY("mutex") Mtx {
 public:
  constexpr Mtx() noexcept = default;
  Mtx(const Mtx&) = delete;
  Mtx& operator=(const Mtx&) = delete;

  /** Takes the lock and waits as long as another thread holds it. */
  void lock() noexcept QK_ACQUIRE() {
    if (!take_at_once()) wait_and_take();
  }

  /** Takes the lock unless another thread holds it; tells whether the caller holds it now. */
  [[nodiscard]] bool try_lock() noexcept QK_TRY_ACQUIRE(true) { return take_at_once(); }

  /** Undoes one lock() or successful try_lock() of the calling thread, which holds the lock. */
  void unlock() noexcept QK_RELEASE() {
    if (--depth_ != 0) return;
    owner_.store(0, std::memory_order_relaxed);
    if (release() == kContended) wake_one();
  }

  /** Tells whether the calling thread holds the lock. */
  [[nodiscard]] bool held() const noexcept {
    return owner_.load(std::memory_order_relaxed) == this_thread();
  }

  /** For the head of whatever relies on the lock. Checks nothing in what users get. */
  void assert_held() const noexcept QK_ASSERTS_HELD() {
    if constexpr (kAssertions) {
      if (!held()) rule_broken("the lock that is relied on here is not held");
    }
  }

 private:
  enum : int { kFree, kLocked, kContended };

  /** The thread's own address, which is what pthread_self() gives, without a call. */
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
   * With one thread, nobody else can change the word in between, so that plain accesses do. They
   * leave the same values behind: the holder may start a thread and let go afterwards.
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

  // kContended says that a thread may be asleep on the word: whoever lets go then wakes one.
  std::atomic<int> state_{kFree};
  unsigned depth_{0};                     // touched by the owner only
  std::atomic<std::uintptr_t> owner_{0};  // a thread can read its own number here only if it holds
};

static_assert(sizeof(Mtx) == 16);

}  // namespace qk

#endif  // SUPPORT_MTX_H_
