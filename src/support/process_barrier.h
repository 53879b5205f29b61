#ifndef SUPPORT_PROCESS_BARRIER_H_
#define SUPPORT_PROCESS_BARRIER_H_

#include <atomic>

/**
 * A barrier for all threads of the process, paid for by the thread that asks for it: whatever
 * another thread has stored before it can be seen afterwards, and its later loads see what the
 * caller has stored. Linux has it since 4.14, unless a filter of system calls forbids it.
 */
namespace qk {

enum class ProcessBarrier { kUntried, kWorks, kFails };

/** It works from the first success to the first failure, and never again after that. */
inline constinit std::atomic<ProcessBarrier> process_barrier = ProcessBarrier::kUntried;

[[nodiscard]] inline bool process_barrier_works() noexcept {
  return process_barrier.load(std::memory_order_relaxed) == ProcessBarrier::kWorks;
}

[[nodiscard]] inline bool process_barrier_fails() noexcept {
  return process_barrier.load(std::memory_order_relaxed) == ProcessBarrier::kFails;
}

/** Returns whether the barrier works, and tries it if nobody has. errno is preserved. */
[[nodiscard]] bool prepare_process_barrier() noexcept;

/**
 * Has all threads pass the barrier. If that fails, it waits instead, for a millisecond, until no
 * processor can still keep a store to itself. errno is preserved. Safe in signal handlers.
 */
void pass_process_barrier() noexcept;

}  // namespace qk

#endif  // SUPPORT_PROCESS_BARRIER_H_
