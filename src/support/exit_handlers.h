#ifndef SUPPORT_EXIT_HANDLERS_H_
#define SUPPORT_EXIT_HANDLERS_H_

#include "qkmem/status.h"

namespace qk {

/** Codes of qk_atexit(), besides those of option strings. */
enum : int {
  kExitPositionUnknown = 10045,
  kExitHandlersFull = 10050,
  kExitHandlerNull = 10051,
  kExitHookRefused = 10052  // atexit() of the C library failed
};

/** Maximum number of handlers that a process can register, including those that have run. */
inline constexpr int kMaxExitHandlers = 32;

}  // namespace qk

extern "C" {

using qk_exit_handler = void (*)(int signal_number);

/**
 * Registers a function that is called at the end of the process.
 *
 * Each handler runs once. The newest runs first; those registered with POSITION=LAST run after all
 * others. Its argument is 0 at normal termination, which is return from main() or exit(). Otherwise
 * it is the number of the signal that ends the process: HUP, INT, QUIT, TERM, SEGV, BUS, FPE, ILL
 * or ABRT. A signal is watched only if it had its default action when the first handler was
 * registered, and only until the program sets another action.
 *
 * After the handlers have run for a signal, the process ends by that signal, as it would have
 * without them. This takes at most 1.5 seconds from the signal on, measured with the process's
 * real-time timer and SIGALRM; a handler that hangs is abandoned. If another signal or a fault hits
 * the thread that runs the handlers, the process ends at once, by the first signal. A signal during
 * the handlers of a normal termination ends the process by itself. A handler for a signal may
 * interrupt any code; qk_signal_safe() returns whether it can work safely then.
 *
 * @param handler  called at the end. May register other handlers, which then run too.
 * @param name     the handler's name, for the status; may be null. Not kept.
 * @param owner    the module that registers it, for the status; may be null. Not kept.
 * @param options  option string: POSITION=FIRST (the default) or POSITION=LAST. Not kept.
 * @param status   filled on failure only: code, location, host, the handler's name as subject, and
 *                 as the arguments the refused word and the owner. May be null.
 * @return 0, or the status code: one of those above, or of qk_option_error for a bad option string.
 *
 * Safe in any thread. Usable before static constructors have run, and from exit handlers. The child
 * of a fork has the handlers that have not run yet.
 */
int qk_atexit(qk_exit_handler handler, const char* name, const char* owner, const char* options,
              qk::Status* status);

}  // extern "C"

#endif  // SUPPORT_EXIT_HANDLERS_H_
