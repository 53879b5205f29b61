#ifndef SUPPORT_THREAD_ID_H_
#define SUPPORT_THREAD_ID_H_

/**
 * Tells the calling thread's number, 1 upward in the order of the threads' first calls.
 *
 * Unlike the system's identifiers a number is never given again after its thread has ended, so it
 * can be the key of what outlives the thread. The child of a fork keeps the number of the thread
 * that forked. Threads: any. Never fails.
 */
extern "C" unsigned long qk_gettid(void);

#endif  // SUPPORT_THREAD_ID_H_
