#ifndef TESTS_LOCK_ORDER_SHADOW_SUPPORT_MTX_H_
#define TESTS_LOCK_ORDER_SHADOW_SUPPORT_MTX_H_

// Replaces the library's own header. Its lock is included here under another name.
#define Mtx RealMtx
#include "../../../../src/support/mtx.h"
#undef Mtx

#include "tests/lock_order/recorder.h"

namespace qk {

/** The library's lock. Notifies the recorder when a thread acquires or releases it. */
class Mtx : private RealMtx {
 public:
  constexpr Mtx() noexcept = default;

  void lock() noexcept {
    if (!held()) lock_order::requested(this);
    RealMtx::lock();
    lock_order::acquired(this);
  }
  [[nodiscard]] bool try_lock() noexcept {
    if (!RealMtx::try_lock()) return false;
    lock_order::acquired(this);
    return true;
  }
  void unlock() noexcept {
    lock_order::released(this);
    RealMtx::unlock();
  }
  [[nodiscard]] Entry enter_as_favourite() noexcept {
    if (!held()) lock_order::requested(this);
    const Entry entry = RealMtx::enter_as_favourite();
    if (entry.is_inside()) lock_order::acquired(this);
    return entry;
  }
  void leave(Entry entry) noexcept {
    lock_order::released(this);
    RealMtx::leave(entry);
  }
  using RealMtx::assert_held;
  using RealMtx::Entry;
  using RealMtx::forget_waiters;
  using RealMtx::held;
  using RealMtx::wake_sleepers;
};

}  // namespace qk

#endif  // TESTS_LOCK_ORDER_SHADOW_SUPPORT_MTX_H_
