#ifndef TESTS_LOCK_ORDER_SHADOW_SUPPORT_MTX_H_
#define TESTS_LOCK_ORDER_SHADOW_SUPPORT_MTX_H_

// Stands in front of the library's own lock, which is in here under another name.
#define Mtx RealMtx
#include "../../../../src/support/mtx.h"
#undef Mtx

#include "tests/lock_order/recorder.h"

namespace qk {

/** The library's lock; tells the recorder whenever a thread takes it or lets it go. */
class Mtx : private RealMtx {
 public:
  constexpr Mtx() noexcept = default;

  void lock() noexcept {
    if (!held()) lock_order::asked_for(this);
    RealMtx::lock();
    lock_order::taken(this);
  }
  [[nodiscard]] bool try_lock() noexcept {
    if (!RealMtx::try_lock()) return false;
    lock_order::taken(this);
    return true;
  }
  void unlock() noexcept {
    lock_order::let_go(this);
    RealMtx::unlock();
  }
  using RealMtx::assert_held;
  using RealMtx::held;
};

}  // namespace qk

#endif  // TESTS_LOCK_ORDER_SHADOW_SUPPORT_MTX_H_
