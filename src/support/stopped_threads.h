#ifndef SUPPORT_STOPPED_THREADS_H_
#define SUPPORT_STOPPED_THREADS_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "support/modules.h"

namespace qk {

/** What a stopped thread has outside of its memory. */
struct ThreadState {
  static constexpr std::size_t kMostWords = 128;

  std::uintptr_t stack_pointer;
  std::uintptr_t thread_pointer;
  std::uint64_t words;                  // of its registers, those for numbers and vectors
  std::uint64_t registers[kMostWords];  // the rest is zero
};

/**
 * Stops all threads but the calling one during its lifetime, and reads their registers. A helper
 * process does it, as only another process may: it is a copy of this one, see
 * support/process_copy.h. Threads are stopped where they are, so the caller must not wait for
 * anything that one of them can hold. A system call that waits can return early with EINTR.
 *
 * It takes a permission that not every process has. Without it, or if a thread can't be stopped
 * within a second, all threads go on and are_stopped() is false.
 *
 * To be used with NoSignals.
 */
class StoppedThreads {
 public:
  StoppedThreads() noexcept;
  StoppedThreads(const StoppedThreads&) = delete;
  StoppedThreads& operator=(const StoppedThreads&) = delete;
  ~StoppedThreads();

  [[nodiscard]] bool are_stopped() const { return helper_ > 0; }

  /** Of each thread that is stopped. Valid in copies of the process too, as long as this lives. */
  [[nodiscard]] std::span<const ThreadState> states() const;

  /** Lets them go on. */
  void let_go() noexcept;

  struct Shared;

 private:
  void stop();

  Shared* shared_ = nullptr;
  pid_t helper_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_STOPPED_THREADS_H_
