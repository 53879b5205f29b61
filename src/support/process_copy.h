#ifndef SUPPORT_PROCESS_COPY_H_
#define SUPPORT_PROCESS_COPY_H_

#include <sys/types.h>

#include <csignal>

namespace qk {

/** Lets no signal handler of the program run in the calling thread, and in copies made by it. */
class NoSignals {
 public:
  NoSignals() noexcept;
  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;
  ~NoSignals();

 private:
  sigset_t before_;
};

/**
 * Makes a copy of the process that has the calling thread only. It isn't a fork to the program: no
 * handler of forks runs, no wait of the program sees the copy, and its end sends no signal. The copy
 * has its own memory, and must not call what takes locks of the C library, such as the allocator.
 * It ends with this process, and without a core file.
 *
 * To be called with NoSignals.
 *
 * @return as fork().
 */
[[nodiscard]] pid_t copy_process() noexcept;

/** Waits until a copy has ended. Returns whether it ended by itself, with code 0. */
[[nodiscard]] bool wait_for_copy(pid_t copy) noexcept;

/**
 * Waits for so many milliseconds at most. Returns whether the copy has ended in that time.
 * Otherwise it is killed.
 */
[[nodiscard]] bool wait_for_copy(pid_t copy, int milliseconds) noexcept;

/** Whether a copy has ended. It needn't be waited for then. */
[[nodiscard]] bool has_copy_ended(pid_t copy) noexcept;

}  // namespace qk

#endif  // SUPPORT_PROCESS_COPY_H_
