#ifndef QKMEM_ACCOUNTING_KEPT_CALLS_H_
#define QKMEM_ACCOUNTING_KEPT_CALLS_H_

#include <cstddef>

#include "core/records.h"

/**
 * Calls that the library itself does not use. They stay as they are because code outside the
 * library links them by these names. Each consists of a few steps of the library's own calls.
 *
 * The calls that return slots are for threads that have the handle to themselves: a slot can move
 * or be reused as soon as another thread uses the handle.
 */
extern "C" {

/**
 * Finds the record of a handle's number. An error is reported in the name of `routine` under the
 * switches `debug`.
 *
 * @return 0 with the record in `*handle`; or 5566, which is also the thread's error code then.
 */
int qk_mem_get_handle(int hid, qk_mem_handle** handle, const char* routine, const char* file,
                      int line, qk_mem_debug* debug);

/**
 * Reserves a slot for `address`, stores address and kind and counts it. The caller fills in the
 * rest. A full array grows. The growth or its failure is logged under `debug`.
 *
 * @return null if there is no slot.
 */
qk_mem_ptr* qk_mem_new_ptr(qk_mem_handle* handle, void* address, unsigned char kind,
                           const char* file, int line, qk_mem_debug* debug);

/** Finds the slot that holds `address`, or null. */
qk_mem_ptr* qk_mem_get_ptr(qk_mem_handle* handle, const void* address);

/**
 * Clears the slot that holds the record's address and subtracts 1 from the quantity. The caller
 * subtracts the bytes.
 *
 * The kind is read from `record` AFTER the slot was cleared. A caller that passes the slot itself
 * therefore lowers `qty` and the tag's `qty` even for overhead records. Reports rely on that.
 */
void qk_mem_free_ptr(qk_mem_handle* handle, qk_mem_ptr* record);

/**
 * Hands out a piece of the handle's blocks: the first fit, or the start of a new block if none has
 * room.
 *
 * @param alignment  counted from the start of a data area, which is aligned to 16. 0 and less are
 *                   refused.
 * @return null with the error code: 5022 for the alignment, otherwise the allocator's.
 */
void* qk_mem_block_alloc(qk_mem_handle* handle, std::size_t size, int alignment, const char* file,
                         int line, qk_mem_debug* entry);

/**
 * Takes a piece back, or frees registered external memory. Without BLOCKFREE a piece stays. Room is
 * regained only at the two ends of what is in use in a block.
 *
 * @param record  the pointer's record, or null to look it up.
 * @return the record, which the caller removes; null for an unknown pointer, after a warning.
 */
qk_mem_ptr* qk_mem_block_free(qk_mem_handle* handle, void* ptr, qk_mem_ptr* record,
                              const char* file, int line, qk_mem_debug* entry);

/** Writes "file:line" into `buf`, which must be long enough, and returns it. */
char* qk_mem_location_string(const char* file, int line, char* buf);

}  // extern "C"

#endif  // QKMEM_ACCOUNTING_KEPT_CALLS_H_
