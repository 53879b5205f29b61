#ifndef SUPPORT_UNWINDER_H_
#define SUPPORT_UNWINDER_H_

#include <cstdint>

/** Finds out by which calls the calling thread has come to where it is. */
namespace qk {

/** A way to walk up a stack. */
struct Unwinder {
  const char* name;

  /**
   * Writes the return addresses of the calling thread, innermost first, at most `most`. The first
   * ones can be in the function itself and in its caller. Returns how many there are.
   */
  int (*walk)(void** addresses, int most);
};

/** That of the C++ run-time, which throws use: always there, and the slowest. */
[[gnu::visibility("hidden")]] extern const Unwinder kRuntimeUnwinder;

/**
 * Returns the fastest one that the machine has: libunwind's, which is loaded now and stays, or else
 * the run-time's. It is never linked: it would take throws over, which then take 20 times as long.
 * It keeps what it learns of code by its address, so that it can be wrong once a library is loaded
 * where another one was. Allocates. Threads: any.
 */
[[nodiscard]] const Unwinder& load_unwinder() noexcept;

/**
 * Makes capture_stack() use this unwinder, which must stay, and lets it get ready, which can
 * allocate. Not for signal handlers. One thread at a time.
 */
void prepare_stacks(const Unwinder& unwinder) noexcept;

/**
 * Whether capture_stack() can tell the library's own calls, and leaves them out. After
 * prepare_stacks(). Threads: any.
 */
[[nodiscard]] bool stacks_leave_library_out() noexcept;

/** What capture_stack() uses, for a report; "none" before prepare_stacks(). Threads: any. */
[[nodiscard]] const char* unwinder_name() noexcept;

/** A stack has no more frames. */
inline constexpr int kMostFrames = 64;

/**
 * Writes the return addresses of the caller and of what called it, innermost first, at most `most`
 * and kMostFrames. Those in the shared library itself are left out at the beginning. In a program
 * that contains the library they can't be told from others without their names.
 *
 * @param entry  a return address in the stack, or null: if it is one of the first, the stack begins
 *               with it. That saves the walk some frames, and tells the library's from others.
 * @return how many there are: 0 before prepare_stacks(), and 0 if the thread is inside the function
 * already, because the unwinder has called an allocator that calls it.
 *
 * Takes no lock and allocates nothing, except what an unwinder does in a thread's first call and
 * with code that it has not seen before: libunwind then takes locks of its own and of the dynamic
 * linker. So capture before taking a lock that a thread inside the dynamic linker can wait for.
 * Keeps errno. Threads: any.
 */
[[nodiscard]] int capture_stack(std::uintptr_t* frames, int most,
                                const void* entry = nullptr) noexcept;

}  // namespace qk

#endif  // SUPPORT_UNWINDER_H_
