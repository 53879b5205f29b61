#ifndef SUPPORT_EXIT_HANDLERS_H_
#define SUPPORT_EXIT_HANDLERS_H_

#include "qkmem/status.h"

namespace qk {

/** Codes of qk_atexit(), beside those of option strings. */
enum : int {
  kExitOptionsTooLong = 10037,
  kExitPositionUnknown = 10045,
  kExitHandlersFull = 10050,
  kExitHandlerNull = 10051,
  kExitHookRefused = 10052  // the C library's atexit() takes no more
};

/** Handlers that a process can register. Those that have run still count. */
inline constexpr int kMaxExitHandlers = 32;

}  // namespace qk

namespace qk {

/**
 * Names a test of what a signal has interrupted: whether the calling thread is in the middle of
 * something that the handlers need finished, such as the use of a lock. HUP, INT, QUIT and TERM are
 * then put off: the thread goes on, and two milliseconds later it is looked at again, for up to a
 * second. After that the handlers run all the same.
 *
 * @param is_busy  called inside signal handlers only; null for none.
 */
void put_off_exit_while(bool (*is_busy)());

}  // namespace qk

extern "C" {

using qk_exit_handler = void (*)(int signal_number);

/**
 * Registers a function for the end of the process.
 *
 * Each handler runs once: the newest first, those registered with POSITION=LAST behind all others.
 * It gets 0 at normal termination, return from main() or exit(); or the number of the signal that
 * ends the process: HUP, INT, QUIT, TERM, SEGV, BUS, FPE, ILL or ABRT. A signal is only watched if
 * it had its default action when the first handler was registered, and only as long as nobody else
 * takes it.
 *
 * When the handlers have run for a signal, the process ends by it, as it would have without them.
 * That takes 1.5 seconds at most from the signal on, measured with the process's real-time timer
 * and SIGALRM: handlers that hang are given up. Another signal, or a fault, in the thread that runs
 * the handlers ends the process at once, by the first signal; one that comes while they run for
 * normal termination does so by itself. A handler for a signal may interrupt anything,
 * qk_signal_safe() tells which do no harm.
 *
 * @param handler  called at the end; may register others, which then run too.
 * @param name     the handler's name, for the status; may be null. Not kept.
 * @param owner    who registers it, for the status; may be null. Not kept.
 * @param options  option string: POSITION=FIRST (also without options) or POSITION=LAST. Not kept.
 * @param status   filled on failure only: code, location, host, the handler's name as subject; as
 *                 the arguments the word that was refused and the owner. May be null.
 * @return  0, or the status code: a code above, or of qk_option_error for a bad option string.
 *
 * Threads: any. Usable before static constructors have run and from exit handlers. The child of a
 * fork has the handlers that had not run yet.
 */
int qk_atexit(qk_exit_handler handler, const char* name, const char* owner, const char* options,
              qk::Status* status);

}  // extern "C"

#endif  // SUPPORT_EXIT_HANDLERS_H_
