#include "support/mtx.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <bit>
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

int* lower_half(LinuxThreads::Word& word) noexcept {
  static_assert(sizeof word == sizeof(std::uint64_t) && LinuxThreads::Word::is_always_lock_free);
  return reinterpret_cast<int*>(&word) + (std::endian::native == std::endian::little ? 0 : 1);
}

void futex(LinuxThreads::Word& word, int operation, int value) noexcept {
  const KeepErrno keep;
  syscall(SYS_futex, lower_half(word), operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
}

}  // namespace

/**
 * Two owners can have the same lower half. A thread that takes one for the other sleeps while the
 * lock is taken and marked with kSleepers, which is what it waited for.
 */
void LinuxThreads::sleep(Word& word, std::uint64_t seen) noexcept {
  futex(word, FUTEX_WAIT, static_cast<int>(static_cast<std::uint32_t>(seen)));
}

void LinuxThreads::wake(Word& word) noexcept { futex(word, FUTEX_WAKE, 1); }

}  // namespace qk
