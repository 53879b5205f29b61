#ifndef QKMEM_ACCOUNTING_RECORDING_H_
#define QKMEM_ACCOUNTING_RECORDING_H_

#include <optional>

#include "diag/call_context.h"
#include "table/pointer_table.h"

/** Records pointers. Growth of the table is announced. */
namespace qk::mem {

/**
 * Inserts a record, and numbers it if the event is counted. Grows the array when it is full.
 *
 * @return the record; nothing if there is no slot for it, which is reported. A failed growth also
 *         sets the error code.
 */
std::optional<qk_mem_ptr> insert_or_grow(qk_mem_handle& handle, const qk_mem_ptr& record,
                                         EventCount event, const CallContext& context);

/** Records a pointer at the caller's location and counts the event. Returns as above. */
std::optional<qk_mem_ptr> record_pointer(qk_mem_handle& handle, void* address, unsigned char kind,
                                         const Contents& contents, const CallContext& context);

}  // namespace qk::mem

#endif  // QKMEM_ACCOUNTING_RECORDING_H_
