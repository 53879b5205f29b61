#ifndef SUPPORT_BASIC_MTX_H_
#define SUPPORT_BASIC_MTX_H_

#include <atomic>
#include <cstdint>

#include "support/assertion.h"
#include "support/thread_annotations.h"

namespace qk {

/**
 * The steps of a recursive lock that needs no locked instruction while one thread uses it (biased
 * locking).
 *
 * A thread that has taken the lock some times in a row becomes its favourite. It then enters by a
 * plain store to a flag of its own, and looks a second time whether it still is the favourite. Other
 * threads take the lock's word, withdraw the favour, and have all threads of the process pass a
 * barrier. After that, either the favourite's second look finds the favour withdrawn, or its flag
 * can be seen, and is waited for.
 *
 * Each favourite keeps its flag for good: a former one can store to it at any later time, when it
 * was interrupted after its first look. So only the first few threads can be favourites.
 *
 * A release is a plain store too. A thread that is about to sleep counts itself as waiting, has all
 * threads pass the barrier, and looks again: who releases the lock later sees the count. Without a
 * barrier there are no favourites, and a release is an exchange.
 *
 * The word, or a flag, contains the holder from the very instruction that takes the lock to the one
 * that releases it. So a signal handler can trust held() whatever it has interrupted. If it returns
 * false, the handler may lock and unlock, after wake_sleepers().
 *
 * `Machine` has the atomic variables, the id of the calling thread, the barrier, and the calls that
 * wait and wake. A test replaces it in order to walk through all interleavings.
 */
template <class Machine>
class QK_CAPABILITY("mutex") BasicMtx {
 public:
  constexpr BasicMtx() noexcept = default;
  BasicMtx(const BasicMtx&) = delete;
  BasicMtx& operator=(const BasicMtx&) = delete;

  /** Takes the lock. Waits while another thread holds it. */
  void lock() noexcept QK_ACQUIRE() {
    if (!enter_as_favourite().is_inside()) [[unlikely]]
      lock_word();
  }

  /** How the favourite has entered; at first, that it has not. */
  struct Entry {
    std::uint64_t flag = kFavourites;
    std::uint32_t depth = 0;  // how often it had entered before

    [[nodiscard]] bool is_inside() const noexcept { return flag < kFavourites; }
  };

  /**
   * Takes the lock if the calling thread is the favourite, in a few instructions without a call. If
   * not, the caller isn't inside, and has to lock().
   */
  [[nodiscard]] Entry enter_as_favourite() noexcept QK_UNCHECKED_LOCKING {
    const std::uint64_t favourite = favourite_.load(std::memory_order_relaxed);
    const std::uint64_t flag = flag_in(favourite);
    if (flag >= kFavourites) [[unlikely]]
      return {};
    const Entry entry = {flag, inside_[flag].load(std::memory_order_relaxed)};
    inside_[flag].store(entry.depth + 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (entry.depth != 0) [[unlikely]]
      return entry;
    if (favourite_.load(std::memory_order_acquire) == favourite) [[likely]]
      return entry;
    leave(entry);
    return {};
  }

  /**
   * Undoes the enter_as_favourite() that has returned `entry`. The favour may be gone by now. Wakes
   * all, since the one that waits for the flag holds the word, for which others wait.
   */
  void leave(Entry entry) noexcept QK_UNCHECKED_LOCKING {
    inside_[entry.flag].store(entry.depth, std::memory_order_release);
    if (entry.depth != 0) [[unlikely]]
      return;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    wake_sleepers();
  }

  /**
   * Takes the lock unless another thread holds it. Returns whether the caller holds it now. Never
   * waits, but withdraws another thread's favour.
   */
  [[nodiscard]] bool try_lock() noexcept QK_TRY_ACQUIRE(true) {
    return enter_as_favourite().is_inside() || enter_again() || try_to_take();
  }

  /** Undoes one lock() or successful try_lock() of the calling thread, which must hold the lock. */
  void unlock() noexcept QK_RELEASE() {
    const std::uint64_t flag = flag_in(favourite_.load(std::memory_order_relaxed));
    if (flag < kFavourites) [[likely]] {
      const std::uint32_t depth = inside_[flag].load(std::memory_order_relaxed);
      if (depth != 0) [[likely]]
        return leave({flag, depth - 1});
    }
    unlock_word();
  }

  /** Returns whether the calling thread holds the lock. */
  [[nodiscard]] bool held() const noexcept { return has_word() || own_flag() < kFavourites; }

  /**
   * Wakes the threads that sleep on the lock, if any; at worst they look and sleep again. For a
   * signal handler: the thread that it has interrupted may have released the lock and not got to
   * waking another one, which may hold what the handler needs.
   */
  void wake_sleepers() noexcept {
    if (waiters_.load(std::memory_order_seq_cst) == 0) [[likely]]
      return;
    wakes_.fetch_add(1, std::memory_order_release);
    Machine::wake_all(wakes_);
  }

  /** For the child of a fork, whose only thread holds the lock: nobody waits for it there. */
  void forget_waiters() noexcept { waiters_.store(0, std::memory_order_relaxed); }

  /** The first line of functions that rely on the lock. Does nothing in users' builds. */
  void assert_held() const noexcept QK_ASSERTS_HELD() {
    if constexpr (kAssertions) {
      if (!held()) assertion_failed("the lock that is relied on here is not held");
    }
  }

 private:
  template <class T>
  using Atomic = typename Machine::template Atomic<T>;

  /** So many threads can be favourites, one after the other. Each has a flag for good. */
  static constexpr std::uint64_t kFavourites = 3;
  static constexpr std::uint32_t kLongestRun = 1U << 30;

  /** The flag of the calling thread if it is that favourite; otherwise `kFavourites` or more. */
  [[nodiscard]] static std::uint64_t flag_in(std::uint64_t favourite) noexcept {
    return favourite - Machine::self();
  }

  [[nodiscard]] bool has_word() const noexcept {
    return word_.load(std::memory_order_relaxed) == Machine::self();
  }

  /** The flag by which the calling thread is inside; kFavourites if it isn't. */
  [[nodiscard]] std::uint64_t own_flag() const noexcept {
    for (std::uint64_t flag = 0; flag < kFavourites; ++flag) {
      if (owners_[flag].load(std::memory_order_relaxed) != Machine::self()) continue;
      return inside_[flag].load(std::memory_order_relaxed) != 0 ? flag : kFavourites;
    }
    return kFavourites;
  }

  /** A lock() of a thread that holds the lock already. */
  bool enter_again() noexcept {
    if (has_word()) {
      ++repeats_;
      return true;
    }
    const std::uint64_t flag = own_flag();
    if (flag == kFavourites) return false;
    inside_[flag].store(inside_[flag].load(std::memory_order_relaxed) + 1,
                        std::memory_order_relaxed);
    return true;
  }

  [[gnu::noinline]] void lock_word() noexcept {
    if (enter_again()) return;
    wait_until([this] { return take_word(); });
    withdraw_favour();
    wait_until([this] { return !has_others_inside(); });
    count_run();
  }

  bool try_to_take() noexcept {
    if (!take_word()) return false;
    withdraw_favour();
    if (has_others_inside()) {
      release_word();
      return false;
    }
    count_run();
    return true;
  }

  bool take_word() noexcept {
    std::uint64_t seen = word_.load(std::memory_order_seq_cst);
    return seen == 0 &&
           word_.compare_exchange_strong(seen, Machine::self(), std::memory_order_acquire,
                                         std::memory_order_relaxed);
  }

  /** Each time, it takes twice as long to earn the next favour. */
  void withdraw_favour() noexcept {
    const std::uint64_t favourite = favourite_.load(std::memory_order_relaxed);
    if (favourite == 0 || flag_in(favourite) < kFavourites) return;
    favourite_.store(0, std::memory_order_relaxed);
    Machine::barrier();
    if (run_for_favour_ < kLongestRun) run_for_favour_ *= 2;
  }

  /** Even after the favour is withdrawn, a former favourite may still be inside. */
  [[nodiscard]] bool has_others_inside() const noexcept {
    for (std::uint64_t flag = 0; flag < kFavourites; ++flag) {
      if (inside_[flag].load(std::memory_order_seq_cst) != 0 &&
          owners_[flag].load(std::memory_order_relaxed) != Machine::self()) {
        return true;
      }
    }
    return false;
  }

  void count_run() noexcept {
    if (taken_last_by_ != Machine::self()) {
      taken_last_by_ = Machine::self();
      run_ = 0;
    }
    if (run_ < kLongestRun) ++run_;
  }

  [[gnu::noinline]] void unlock_word() noexcept {
    if (!has_word()) {
      const std::uint64_t flag = own_flag();
      return leave({flag, inside_[flag].load(std::memory_order_relaxed) - 1});
    }
    if (repeats_ != 0) {
      --repeats_;
      return;
    }
    if (run_ >= run_for_favour_ && Machine::prepare_barrier()) become_favourite();
    release_word();
  }

  /** The caller holds the word. Does nothing if all flags are other threads'. */
  void become_favourite() noexcept {
    const std::uint64_t self = Machine::self();
    for (std::uint64_t flag = 0; flag < kFavourites; ++flag) {
      const std::uint64_t owner = owners_[flag].load(std::memory_order_relaxed);
      if (owner != 0 && owner != self) continue;
      owners_[flag].store(self, std::memory_order_relaxed);
      favourite_.store(self + flag, std::memory_order_relaxed);
      return;
    }
  }

  void release_word() noexcept {
    if (Machine::barrier_works()) {
      word_.store(0, std::memory_order_release);
      std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
      word_.exchange(0, std::memory_order_seq_cst);
    }
    if (waiters_.load(std::memory_order_seq_cst) == 0) return;
    wakes_.fetch_add(1, std::memory_order_release);
    Machine::wake_one(wakes_);
  }

  template <class Condition>
  void wait_until(Condition is_true) noexcept {
    if (is_true()) [[likely]]
      return;
    while (!look_for_a_while(is_true) && !sleep_unless(is_true)) {
    }
  }

  /** Looks in gaps: looking takes the lock's memory away from its holder. */
  template <class Condition>
  bool look_for_a_while(Condition is_true) noexcept {
    for (int look = 0; look < Machine::kLooks; ++look) {
      Machine::pause();
      if (is_true()) return true;
    }
    return false;
  }

  /**
   * Sleeps until it is woken, and returns false; or returns true without having slept. It sleeps on
   * a count of the wake-ups, so that none is lost between the look and the sleep.
   */
  template <class Condition>
  bool sleep_unless(Condition is_true) noexcept {
    waiters_.fetch_add(1, std::memory_order_seq_cst);
    Machine::barrier_before_sleep();
    const std::uint32_t seen = wakes_.load(std::memory_order_acquire);
    const bool found = is_true();
    if (!found) Machine::sleep(wakes_, seen);
    waiters_.fetch_sub(1, std::memory_order_relaxed);
    return found;
  }

  Atomic<std::uint64_t> favourite_{0};  // its id plus the number of its flag; 0 if there is none
  Atomic<std::uint32_t> inside_[kFavourites] = {};  // how often the flag's owner has entered by it
  Atomic<std::uint32_t> waiters_{0};                // threads that sleep, or are about to
  Atomic<std::uint64_t> word_{0};                   // the holder that is no favourite
  Atomic<std::uint32_t> wakes_{0};
  std::uint32_t repeats_{0};  // lock() calls of the word's holder beyond the first
  // Who holds the word changes these.
  std::uint64_t taken_last_by_{0};
  std::uint32_t run_{0};  // how often in a row
  std::uint32_t run_for_favour_{Machine::kRunForFavour};
  Atomic<std::uint64_t> owners_[kFavourites] = {};  // of the flags
};

}  // namespace qk

#endif  // SUPPORT_BASIC_MTX_H_
