#ifndef SUPPORT_MTX_H_
#define SUPPORT_MTX_H_

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>

#include "support/assertion.h"
#include "support/thread_annotations.h"

namespace qk {

/**
 * The steps of a recursive lock, on a word that contains its owner: a thread is the owner from the
 * very instruction that takes the lock to the one that releases it. So a signal handler can trust
 * held() whatever it has interrupted, and may lock and unlock there if it returns false.
 *
 * `Machine` has the type Word of the word, the id of the calling thread, and the calls that sleep
 * and wake. A test replaces it in order to walk through all interleavings.
 */
template <class Machine>
class QK_CAPABILITY("mutex") BasicMtx {
 public:
  constexpr BasicMtx() noexcept = default;
  BasicMtx(const BasicMtx&) = delete;
  BasicMtx& operator=(const BasicMtx&) = delete;

  /** Takes the lock. Waits while another thread holds it. */
  void lock() noexcept QK_ACQUIRE() {
    if (!take_at_once()) wait_and_take();
  }

  /** Takes the lock unless another thread holds it. Returns whether the caller holds it now. */
  [[nodiscard]] bool try_lock() noexcept QK_TRY_ACQUIRE(true) { return take_at_once(); }

  /** Undoes one lock() or successful try_lock() of the calling thread, which must hold the lock. */
  void unlock() noexcept QK_RELEASE() {
    if (repeats_ != 0) {
      --repeats_;
    } else if ((release() & kSleepers) != 0) {
      wake_sleeper();
    }
  }

  /** Returns whether the calling thread holds the lock. */
  [[nodiscard]] bool held() const noexcept {
    return (word_.load(std::memory_order_relaxed) & ~kSleepers) == Machine::self();
  }

  /**
   * Wakes a thread that sleeps on the lock, if any; at worst it looks and sleeps again. For a signal
   * handler that ends the process: the thread that it has interrupted may have released the lock and
   * not got to waking the next one.
   */
  void wake_sleeper() noexcept { Machine::wake(word_); }

  /** The first line of functions that rely on the lock. Does nothing in users' builds. */
  void assert_held() const noexcept QK_ASSERTS_HELD() {
    if constexpr (kAssertions) {
      if (!held()) assertion_failed("the lock that is relied on here is not held");
    }
  }

 private:
  using Word = typename Machine::Word;

  static constexpr std::uint64_t kFree = 0;
  /** Beside the owner, whose id has the bit clear: threads may sleep until unlock() wakes one. */
  static constexpr std::uint64_t kSleepers = 1;

  bool take_at_once() noexcept {
    const std::uint64_t self = Machine::self();
    std::uint64_t seen = word_.load(std::memory_order_relaxed);
    if ((seen & ~kSleepers) == self) {
      ++repeats_;
      return true;
    }
    if (seen != kFree) return false;
    if (!Machine::single_threaded()) {
      return word_.compare_exchange_strong(seen, self, std::memory_order_acquire,
                                           std::memory_order_relaxed);
    }
    // With one thread, nothing else can change the word, so plain accesses are enough. They store
    // the same values, because the holder can start a thread before it unlocks.
    word_.store(self, std::memory_order_relaxed);
    return true;
  }

  std::uint64_t release() noexcept {
    if (!Machine::single_threaded()) return word_.exchange(kFree, std::memory_order_release);
    word_.store(kFree, std::memory_order_relaxed);
    return kFree;
  }

  /**
   * The thread takes the lock with kSleepers, because it can't know whether other threads sleep too.
   * At worst that costs one needless wake-up.
   */
  void wait_and_take() noexcept {
    const std::uint64_t self = Machine::self();
    for (;;) {
      std::uint64_t seen = word_.load(std::memory_order_relaxed);
      if (seen == kFree) {
        if (word_.compare_exchange_strong(seen, self | kSleepers, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
          return;
        }
      } else if ((seen & kSleepers) != 0 ||
                 word_.compare_exchange_strong(seen, seen | kSleepers, std::memory_order_relaxed)) {
        Machine::sleep(word_, seen | kSleepers);
      }
    }
  }

  Word word_{kFree};
  std::uint64_t repeats_{0};  // lock() calls beyond the first; accessed by the owner only
};

/** Linux threads, which sleep on the lower half of the word. */
struct LinuxThreads {
  using Word = std::atomic<std::uint64_t>;

  /** The thread's address, which pthread_self() returns too, but without a call. */
  [[nodiscard]] static std::uint64_t self() noexcept {
    return reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
  }

  [[nodiscard]] static bool single_threaded() noexcept { return __libc_single_threaded != 0; }

  /** Returns at once if the word has changed, and now and then for no reason. */
  static void sleep(Word& word, std::uint64_t seen) noexcept;
  static void wake(Word& word) noexcept;
};

/**
 * A recursive lock: the thread that holds it can lock it again. Every lock() needs its own
 * unlock(). Works with MtxLock (support/mtx_lock.h), std::lock_guard and std::unique_lock. A static
 * one can be used before any constructor has run and after exit handlers and destructors have run,
 * because it is constant initialised and has nothing to destroy. It must not be destroyed while a
 * thread holds it or waits for it. Nothing fails, and errno is preserved. Not for use by several
 * processes. A fork copies its state: a lock that another thread held stays locked in the child.
 */
class QK_CAPABILITY("mutex") Mtx : public BasicMtx<LinuxThreads> {};

static_assert(sizeof(Mtx) == 16);

}  // namespace qk

#endif  // SUPPORT_MTX_H_
