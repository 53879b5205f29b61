#ifndef SUPPORT_ALLOCATOR_CODE_H_
#define SUPPORT_ALLOCATOR_CODE_H_

#include "support/interrupted_thread.h"

namespace qk {

/**
 * Finds out where the code of the process's allocator is: the C library's, or one that is preloaded
 * or linked. Allocates nothing. Call it once, before is_in_allocator().
 */
void find_allocator_code() noexcept;

/**
 * Whether a thread is stopped inside the allocator, where it may hold the allocator's locks. For
 * signal handlers: allocates nothing, takes no lock, and needs no tables of an unwinder.
 *
 * It looks at the instruction and for return addresses near the top of the stack. Words that
 * earlier calls have left there can be taken for return addresses: the answer can be yes while the
 * truth is no, until the thread moves on.
 */
[[nodiscard]] bool is_in_allocator(const InterruptedThread& thread) noexcept;

}  // namespace qk

#endif  // SUPPORT_ALLOCATOR_CODE_H_
