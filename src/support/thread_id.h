#ifndef SUPPORT_THREAD_ID_H_
#define SUPPORT_THREAD_ID_H_

/**
 * Returns the calling thread's number. Threads are numbered from 1 in the order of their first
 * calls.
 *
 * Unlike the system's identifiers, a number is not reused after its thread has ended, so it can be
 * the key of data that outlives the thread. The child of a fork keeps the number of the thread that
 * forked. Safe in any thread. Never fails.
 */
extern "C" unsigned long qk_gettid(void);

#endif  // SUPPORT_THREAD_ID_H_
