#ifndef QKMEM_LIFE_INTERRUPTION_H_
#define QKMEM_LIFE_INTERRUPTION_H_

namespace qk::mem {

/**
 * Tells, inside a signal handler, whether the thread that the signal has interrupted holds a lock
 * of the library or is inside the system's allocator. The report at the end needs both.
 *
 * It can't always be known: where nothing speaks for it the answer is no.
 */
[[nodiscard]] bool interrupts_something();

}  // namespace qk::mem

#endif  // QKMEM_LIFE_INTERRUPTION_H_
