#ifndef QKMEM_LIFE_INTERRUPTION_H_
#define QKMEM_LIFE_INTERRUPTION_H_

namespace qk::mem {

/**
 * Whether the thread that a signal has interrupted holds a lock of the library or is inside the
 * system's allocator. The report at the end needs both. For signal handlers.
 *
 * Best effort: returns false if it cannot tell.
 */
[[nodiscard]] bool interrupts_something();

}  // namespace qk::mem

#endif  // QKMEM_LIFE_INTERRUPTION_H_
