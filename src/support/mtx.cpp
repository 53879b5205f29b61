#include "support/mtx.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <ctime>

#include "support/keep_errno.h"

namespace qk {
namespace {

/** Callers lock between a failure and reading its errno. */
void futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
           const timespec* timeout) noexcept {
  static_assert(sizeof word == sizeof value && std::atomic<std::uint32_t>::is_always_lock_free);
  const KeepErrno keep;
  syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, timeout, nullptr, 0);
}

std::int64_t nanoseconds() noexcept {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/** Lets the other thread of a processor's core have it. */
void relax() noexcept {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#endif
}

}  // namespace

void LinuxThreads::pause() noexcept {
  constexpr std::int64_t kGap = 3000;
  const std::int64_t end = nanoseconds() + kGap;
  do {
    relax();
  } while (nanoseconds() < end);
}

/**
 * Once the barrier fails, a thread that still believed in it may have released the lock without
 * seeing that another one is about to sleep. So nobody sleeps for long then.
 */
void LinuxThreads::sleep(std::atomic<std::uint32_t>& wakes, std::uint32_t seen) noexcept {
  constexpr timespec kNotForLong = {0, 10'000'000};
  futex(wakes, FUTEX_WAIT, seen, process_barrier_fails() ? &kNotForLong : nullptr);
}

void LinuxThreads::wake_one(std::atomic<std::uint32_t>& wakes) noexcept {
  futex(wakes, FUTEX_WAKE, 1, nullptr);
}

void LinuxThreads::wake_all(std::atomic<std::uint32_t>& wakes) noexcept {
  futex(wakes, FUTEX_WAKE, INT_MAX, nullptr);
}

}  // namespace qk
