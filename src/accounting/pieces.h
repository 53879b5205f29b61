#ifndef QKMEM_ACCOUNTING_PIECES_H_
#define QKMEM_ACCOUNTING_PIECES_H_

#include <cstddef>

#include "check/new_block.h"
#include "core/records.h"
#include "diag/call_context.h"
#include "table/pointer_table.h"

/** Pieces of blocks, and the log lines about them: new blocks, failures, unknown pointers. */
extern "C" {

/**
 * Links another empty block to a block-managed handle: of the handle's block size, or of `size`
 * bytes if that is more. The handle and its tag are charged for it, header included. `entry`
 * decides which lines are logged.
 *
 * @return null if there is no memory (reported, and the error code is set).
 */
qk_mem_block* qk_mem_new_block(qk_mem_handle* handle, std::size_t size, const char* file, int line,
                               qk_mem_debug* entry);

}  // extern "C"

namespace qk::mem {

/** Refuses an alignment of 0 or less, with the error code 5022, and returns true. */
[[nodiscard]] bool refuse_alignment(int alignment);

/**
 * Hands out a piece of the handle's blocks: the first fit, or the start of a new block if none has
 * room. Its contents are a filling, and a guard follows it, where these are wanted.
 *
 * @param alignment  counted from the start of a data area, which is aligned to 16.
 * @return null with the error code: 5022 for an alignment of 0 or less, else the allocator's.
 */
[[nodiscard]] check::NewBlock allocate_piece(qk_mem_handle& handle, std::size_t size, int alignment,
                                             const CallContext& context);

/**
 * Takes back the piece at `ptr`, or frees the external memory there; `removed` says which it is. A
 * piece of a handle without BLOCKFREE stays.
 */
void release_piece(qk_mem_handle& handle, void* ptr, const Removed& removed,
                   const CallContext& context);

/** Warns of a release of an unknown pointer, if the call reports errors. */
void report_unknown_piece(const qk_mem_handle& handle, const void* ptr, const CallContext& context);

/**
 * Releases a piece and hands out another one of `size` bytes, which does not have the contents. It
 * is the piece that a release and an allocation would find, so it can be at the old address.
 *
 * @param old        of `ptr`, which can also be external memory.
 * @param alignment  above 0.
 * @return null as allocate_piece() does; `ptr` is then as valid as before.
 */
[[nodiscard]] check::NewBlock replace_piece(qk_mem_handle& handle, void* ptr, const Removed& old,
                                            std::size_t size, int alignment,
                                            const CallContext& context);

/**
 * Makes a piece smaller, which stays where it is. Returns it with the room around it.
 */
[[nodiscard]] check::NewBlock shrink_piece(qk_mem_handle& handle, void* ptr, const Removed& old,
                                           std::size_t size);

}  // namespace qk::mem

#endif  // QKMEM_ACCOUNTING_PIECES_H_
