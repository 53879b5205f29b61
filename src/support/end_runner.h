#ifndef SUPPORT_END_RUNNER_H_
#define SUPPORT_END_RUNNER_H_

#include <atomic>
#include <cstdint>
#include <optional>

/**
 * Which thread does what at the end of a process. Signals can interrupt any of this code, and their
 * handlers run the same code: so there are no locks.
 */
namespace qk {

/**
 * A thread, and the signal because of which it acts, 0 for normal termination. One word, so that
 * other threads and signal handlers read the three values together. One with another process number
 * doesn't count: a fork has copied it.
 */
struct ActingThread {
  std::uint64_t process : 24;  // the kernel's limit for either number is 2^22
  std::uint64_t thread : 24;
  std::uint64_t signal : 16;

  [[nodiscard]] int reason() const { return static_cast<int>(signal); }
  [[nodiscard]] bool is_of_this_process() const;
};
static_assert(sizeof(ActingThread) == sizeof(std::uint64_t));

[[nodiscard]] ActingThread calling_thread(int signal_number);

/** A role that one thread of the process has at a time. */
class Role {
 public:
  /** The thread that has the role; null if none of this process has it. */
  [[nodiscard]] std::optional<ActingThread> holder() const;

  /** Gives the role to `own`. If another thread has it, returns that one and changes nothing. */
  std::optional<ActingThread> take(const ActingThread& own);

  void give_up() { holder_.store(ActingThread{0, 0, 0}); }

 private:
  std::atomic<ActingThread> holder_{ActingThread{0, 0, 0}};
  static_assert(std::atomic<ActingThread>::is_always_lock_free);
};

/** Notes the calling process as the one whose end is handled. */
void adopt_process();

/**
 * Whether the calling process was adopted, or is a fork of one that was. The child of vfork() isn't:
 * it shares the memory of its parent, which goes on.
 */
[[nodiscard]] bool is_adopted_process();

}  // namespace qk

#endif  // SUPPORT_END_RUNNER_H_
