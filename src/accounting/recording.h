#ifndef QKMEM_ACCOUNTING_RECORDING_H_
#define QKMEM_ACCOUNTING_RECORDING_H_

#include <optional>

#include "check/new_block.h"
#include "diag/call_context.h"
#include "profile/notes.h"
#include "table/pointer_table.h"

/** Records pointers. Growth of the table is announced. */
namespace qk::mem {

/**
 * Inserts a record, and numbers it if the event is counted. Grows the array when it is full.
 * `origin` is for its mark in the profile.
 *
 * @return as of insert_pointer(). That there is no slot for it is reported; a failed growth also
 *         sets the error code.
 */
Insertion insert_or_grow(qk_mem_handle& handle, const qk_mem_ptr& record, EventCount event,
                         const profile::Origin& origin, const CallContext& context);

/** The site of the program's memory; none if the profile doesn't watch the handle. */
[[nodiscard]] inline profile::Site* site_for(const qk_mem_handle& handle, std::uint64_t bytes,
                                             const CallContext& context) {
  return profile::is_watched(handle) ? profile::site_of(handle, context.file(), context.line, bytes)
                                     : nullptr;
}

/** Records a pointer at the caller's location and counts the event. Nothing if there is no slot. */
std::optional<qk_mem_ptr> record_pointer(qk_mem_handle& handle, void* address, unsigned char kind,
                                         const Contents& contents, const CallContext& context);

/**
 * The same for memory that was allocated for the program. If it can't be recorded as it is, it goes
 * out without a guard in front of it, at another address.
 */
std::optional<qk_mem_ptr> record_block(qk_mem_handle& handle, check::NewBlock& block,
                                       unsigned char kind, const Contents& contents,
                                       const CallContext& context);

}  // namespace qk::mem

#endif  // QKMEM_ACCOUNTING_RECORDING_H_
