#include "support/mtx.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace qk {
namespace {

/** Callers lock between a failure and the look at its errno. */
class KeepErrno {
 public:
  KeepErrno() noexcept : saved_(errno) {}
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;
  ~KeepErrno() { errno = saved_; }

 private:
  int saved_;
};

void futex(std::atomic<int>& word, int operation, int value) noexcept {
  static_assert(sizeof word == sizeof(int) && std::atomic<int>::is_always_lock_free);
  const KeepErrno keep;
  syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
}

}  // namespace

void Mtx::wait_and_take() noexcept {
  // The word stays contended when this thread gets the lock at last, though it may have been the
  // only one asleep: it can't know. The cost is one superfluous wake-up.
  while (state_.exchange(kContended, std::memory_order_acquire) != kFree) {
    futex(state_, FUTEX_WAIT, kContended);
  }
  become_owner();
}

void Mtx::wake_one() noexcept { futex(state_, FUTEX_WAKE, 1); }

}  // namespace qk
