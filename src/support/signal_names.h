#ifndef SUPPORT_SIGNAL_NAMES_H_
#define SUPPORT_SIGNAL_NAMES_H_

/** Facts about signal numbers. Safe in any thread and in signal handlers. */
extern "C" {

/**
 * Returns an English description of a signal, such as "Hangup", or "Unknown signal". Never null.
 * The text is static.
 */
const char* qk_signal_desc(int signal_number);

/**
 * Returns nonzero if an exit handler that gets this number can do all its work: at normal
 * termination (0 or less), and for the signals that ask a program to end, HUP, INT, QUIT and TERM.
 * Returns 0 for the others, such as faults: memory may be damaged, or any code interrupted.
 */
int qk_signal_safe(int signal_number);

}  // extern "C"

#endif  // SUPPORT_SIGNAL_NAMES_H_
