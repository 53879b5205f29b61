#ifndef QKMEM_DIAG_FAILURE_H_
#define QKMEM_DIAG_FAILURE_H_

#include "diag/call_context.h"

/** Requests that the system's allocator has just refused, while errno still tells why. */
namespace qk::mem {

/** Sets the calling thread's error code from errno. */
[[gnu::cold]] void set_error_from_errno();

/**
 * Does the same, and writes an error line if the switches of the call ask for errors: the text of
 * `format`, errno and what it means.
 */
[[gnu::cold, gnu::format(printf, 2, 3)]] void report_failure(const CallContext& context,
                                                             const char* format, ...);

}  // namespace qk::mem

#endif  // QKMEM_DIAG_FAILURE_H_
