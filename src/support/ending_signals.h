#ifndef SUPPORT_ENDING_SIGNALS_H_
#define SUPPORT_ENDING_SIGNALS_H_

#include <cstdint>
#include <optional>

#include "support/interrupted_thread.h"
#include "support/modules.h"

/** The end of a process by HUP, INT, QUIT, TERM, SEGV, BUS, FPE, ILL, ABRT, or normally. */
namespace qk {

/** Runs the exit handlers. The argument is the signal's number, 0 at normal termination. */
using ExitHandlerRun = void (*)(int signal_number);

/**
 * From now on, runs the handlers when one of the signals ends the process. A signal is watched only
 * if it has its default action now, and only until the program sets another one.
 */
void watch_ending_signals(ExitHandlerRun run);

/**
 * Runs the handlers at normal termination, and stops watching the signals. If a signal's end was put
 * off, ends the process by that signal instead. Returns at once if another thread or an earlier call
 * is running the handlers. Does nothing in the child of vfork().
 */
void end_normally();

/**
 * Sets a test of whether a signal has interrupted a thread while it holds something that the
 * handlers need, such as a lock. If so, HUP, INT, QUIT and TERM are put off: the thread continues,
 * and it or another thread is tested again every half millisecond, for up to a second. After that
 * the handlers run in any case.
 *
 * @param is_busy  called only inside signal handlers; null for none.
 */
void put_off_end_while(bool (*is_busy)(const InterruptedThread&));

/**
 * Down to where stacks were in use when a signal arrived that now ends the process: that of the
 * thread which now runs the handlers, and the one that its handler of the signal began on, often the
 * same. Both are 0 if no signal does.
 */
struct LeftStacks {
  std::uintptr_t interrupted;
  std::uintptr_t of_handler;
};
[[nodiscard]] LeftStacks left_stacks();

/**
 * The address that could not be accessed, if a SIGSEGV or SIGBUS of the processor now ends the
 * process and the system tells it. To be called by the handlers.
 */
[[nodiscard]] std::optional<std::uintptr_t> fault_address();

/** The stack that the handlers of these signals run on. Only one thread at a time does. */
[[nodiscard]] AddressRange signal_stack();

}  // namespace qk

#endif  // SUPPORT_ENDING_SIGNALS_H_
