#ifndef QKMEM_ACCOUNTING_HANDLE_LOOKUP_H_
#define QKMEM_ACCOUNTING_HANDLE_LOOKUP_H_

#include "core/records.h"
#include "diag/call_context.h"

namespace qk::mem {

/** Finds the handle of a caller's number. Null if there is none: reported, with the code 5566. */
[[nodiscard]] qk_mem_handle* look_up_handle(int hid, const CallContext& context);

/**
 * Reports a call on a handle that was deleted before, even if its number has a new handle. Sets the
 * code 5566.
 */
void report_deleted_handle(int hid, const CallContext& context);

}  // namespace qk::mem

#endif  // QKMEM_ACCOUNTING_HANDLE_LOOKUP_H_
