#ifndef QKMEM_LIFE_INTERRUPTION_H_
#define QKMEM_LIFE_INTERRUPTION_H_

#include "support/interrupted_thread.h"

namespace qk::mem {

/**
 * Whether the calling thread, which a signal has interrupted, holds a lock of the library or is
 * inside the system's allocator. The report at the end needs both. For signal handlers.
 */
[[nodiscard]] bool is_busy(const InterruptedThread& thread);

}  // namespace qk::mem

#endif  // QKMEM_LIFE_INTERRUPTION_H_
