#include "support/mtx.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace qk {
namespace {

/** Callers lock between a failure and reading its errno. */
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
  // The word stays kContended after this thread gets the lock, because it can't know whether other
  // threads sleep too. At worst that costs one needless wake-up.
  while (state_.exchange(kContended, std::memory_order_acquire) != kFree) {
    futex(state_, FUTEX_WAIT, kContended);
  }
  become_owner();
}

void Mtx::wake_one() noexcept { futex(state_, FUTEX_WAKE, 1); }

}  // namespace qk
