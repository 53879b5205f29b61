#ifndef QKMEM_TABLE_KEPT_CALLS_H_
#define QKMEM_TABLE_KEPT_CALLS_H_

#include <cstddef>

#include "core/records.h"

/**
 * Calls that the library itself makes no use of. Code outside links them by these names, so they
 * stay, with what they do and leave; each is a few steps of the calls that the library is made of.
 *
 * Those that hand out slots are for whoever has the handle to itself: a slot can move or be given
 * away as soon as another thread uses the handle.
 */
extern "C" {

/**
 * Turns a handle's number into its record, for `routine`, whose switches are `debug`.
 *
 * @return 0 with the record in `*handle`; else 5566, which is also left as the thread's code.
 */
int qk_mem_get_handle(int hid, qk_mem_handle** handle, const char* routine, const char* file,
                      int line, qk_mem_debug* debug);

/**
 * Reserves a slot for `address`, stores address and kind and counts it. The caller fills the rest.
 * Grows the array when it is full: logged under `debug`, as a failure is.
 *
 * @return null when there is no slot to be had.
 */
qk_mem_ptr* qk_mem_new_ptr(qk_mem_handle* handle, void* address, unsigned char kind,
                           const char* file, int line, qk_mem_debug* debug);

/** Finds the slot that holds `address`, or null. */
qk_mem_ptr* qk_mem_get_ptr(qk_mem_handle* handle, const void* address);

/**
 * Clears the slot that holds the record's address and counts it off. Bytes are the caller's affair.
 *
 * The kind is read from `record` AFTER the slot was cleared. Who passes the slot itself therefore
 * lowers `qty` and the tag's `qty` also for overhead records; the reports are built on that.
 */
void qk_mem_free_ptr(qk_mem_handle* handle, qk_mem_ptr* record);

/**
 * Hands out a piece of the handle's blocks, first fit, from a new block where none has room.
 *
 * @param alignment  of the piece, counted from the start of a data area, which is aligned to 16.
 *                   One of 0 or less is refused.
 * @return null with the code set: 5022 for the alignment, the allocator's code otherwise.
 */
void* qk_mem_block_alloc(qk_mem_handle* handle, std::size_t size, int alignment, const char* file,
                         int line, qk_mem_debug* entry);

/**
 * Takes a piece back, or frees registered external memory. Without BLOCKFREE nothing happens to a
 * piece. Room is regained only at the two ends of what is live in a block.
 *
 * @param record  the pointer's record, or null to look it up.
 * @return the record, which the caller removes; null for an unknown pointer, which is warned about.
 */
qk_mem_ptr* qk_mem_block_free(qk_mem_handle* handle, void* ptr, qk_mem_ptr* record,
                              const char* file, int line, qk_mem_debug* entry);

/** Writes "file:line" into `buf`, which must be long enough, and returns it. */
char* qk_mem_location_string(const char* file, int line, char* buf);

}  // extern "C"

#endif  // QKMEM_TABLE_KEPT_CALLS_H_
