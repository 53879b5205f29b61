#ifndef SUPPORT_EXIT_CODE_H_
#define SUPPORT_EXIT_CODE_H_

namespace qk {

/**
 * To be called before change_exit_code(), as early as possible. Takes a lock of the dynamic linker
 * and can allocate: so not under a lock that a thread in there can wait for, unless there is one
 * thread only. Later calls do nothing.
 */
void prepare_exit_code();

/**
 * From a handler of the exit: the calling process ends with `code` if it would have ended with 0,
 * after all handlers and destructors, with all streams flushed. Other codes, signals and _exit()
 * stay what they are, and a child has an end of its own.
 *
 * If the program has loaded this module while it ran, and unloads it before the process ends, this
 * does nothing; nor does it if prepare_exit_code() was called after the handler was registered,
 * except in a library that was loaded for all to see: that call keeps it loaded.
 *
 * @param announce  called right before the code is changed.
 */
void change_exit_code(int code, void (*announce)());

}  // namespace qk

#endif  // SUPPORT_EXIT_CODE_H_
