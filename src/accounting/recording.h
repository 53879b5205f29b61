#ifndef QKMEM_ACCOUNTING_RECORDING_H_
#define QKMEM_ACCOUNTING_RECORDING_H_

#include <optional>

#include "diag/call_context.h"
#include "table/pointer_table.h"

/** Recording of pointers in a table that grows when it has to, which is announced. */
namespace qk::mem {

/**
 * Inserts a record whose sequence number is set only if the event is counted. Grows the array when
 * it is full.
 *
 * @return the record; nothing if the array can't grow (reported, and the error code is set).
 */
std::optional<qk_mem_ptr> insert_or_grow(qk_mem_handle& handle, const qk_mem_ptr& record,
                                         EventCount event, const CallContext& context);

/** Records a pointer at the caller's location and counts the event. Returns as above. */
std::optional<qk_mem_ptr> record_pointer(qk_mem_handle& handle, void* address, unsigned char kind,
                                         const Contents& contents, const CallContext& context);

}  // namespace qk::mem

#endif  // QKMEM_ACCOUNTING_RECORDING_H_
