#ifndef SUPPORT_INTERRUPTED_THREAD_H_
#define SUPPORT_INTERRUPTED_THREAD_H_

#include <cstdint>

namespace qk {

/** Where a signal has stopped a thread. All 0 on processors that the functions below don't know. */
struct InterruptedThread {
  std::uintptr_t instruction = 0;     // the next one
  std::uintptr_t stack = 0;           // the stack pointer
  std::uintptr_t return_address = 0;  // of a function without a stack frame; 0 if on the stack
  bool waits_in_kernel = false;       // for something else than memory or a plain lock
};

/** @param context  the third argument of a signal handler that was set with SA_SIGINFO. */
[[nodiscard]] InterruptedThread interrupted_thread(const void* context) noexcept;

}  // namespace qk

#endif  // SUPPORT_INTERRUPTED_THREAD_H_
