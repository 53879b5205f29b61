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
  using RealMtx::assert_held;
  using RealMtx::forget_waiters;
  using RealMtx::held;
  using RealMtx::wake_sleepers;
};

}  // namespace qk

#endif  // TESTS_LOCK_ORDER_SHADOW_SUPPORT_MTX_H_
