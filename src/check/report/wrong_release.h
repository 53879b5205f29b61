#ifndef QKMEM_CHECK_REPORT_WRONG_RELEASE_H_
#define QKMEM_CHECK_REPORT_WRONG_RELEASE_H_

#include "diag/call_context.h"

namespace qk::mem::check {

/**
 * Whether an address that its handle has no record of is known not to be one that the system's
 * allocator could take back: while the checks are on, such a call is told, and goes no further. An
 * address that nothing is known of can be memory of the C library, which has to go on.
 *
 * Asks all handles, so that it takes long. No lock may be held.
 */
[[nodiscard]] bool refuses_release(const qk_mem_handle& handle, const void* address,
                                   Routine routine, const CallContext& context);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_REPORT_WRONG_RELEASE_H_
