#ifndef QKMEM_DIAG_FAILURE_H_
#define QKMEM_DIAG_FAILURE_H_

#include "diag/call_context.h"

/**
 * Failed requests of memory. To be called right after the request, while errno holds the reason.
 */
namespace qk::mem {

/** Sets the calling thread's error code from errno. */
[[gnu::cold]] void set_error_from_errno();

/**
 * Does the same, and writes an error line if the switches of the call ask for errors: the text of
 * `format`, the number in errno and its meaning.
 */
[[gnu::cold, gnu::format(printf, 2, 3)]] void report_failure(const CallContext& context,
                                                             const char* format, ...);

}  // namespace qk::mem

#endif  // QKMEM_DIAG_FAILURE_H_
