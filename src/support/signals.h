#ifndef SUPPORT_SIGNALS_H_
#define SUPPORT_SIGNALS_H_

/** Facts about signal numbers. Threads: any, signal handlers too. */
extern "C" {

/**
 * Describes a signal in English, such as "Hangup"; "Unknown signal" for a number that has no
 * description. Never null; the text is static.
 */
const char* qk_signal_desc(int signal_number);

/**
 * Nonzero where an exit handler that got this number may do all its work: at normal termination (0
 * or less) and for the signals that ask a program to end, HUP, INT, QUIT and TERM. 0 for the
 * others, faults above all: memory may be damaged, or the signal may have interrupted anything.
 */
int qk_signal_safe(int signal_number);

}  // extern "C"

#endif  // SUPPORT_SIGNALS_H_
