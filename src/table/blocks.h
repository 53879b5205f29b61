#ifndef QKMEM_TABLE_BLOCKS_H_
#define QKMEM_TABLE_BLOCKS_H_

#include <cstddef>

#include "core/registry.h"
#include "diag/site.h"
#include "table/first_fit.h"

extern "C" {

/**
 * Gives a block-managed handle another block: of the handle's block size, or of `size` where that
 * is not smaller. The handle and its tag are charged for it, header included. The lines of its
 * failure and its record are written under the caller's switches.
 *
 * @return null when there is no memory (logged, and the code is set).
 */
qk_mem_block* qk_mem_new_block(qk_mem_handle* handle, std::size_t size, const char* file, int line,
                               qk_mem_debug* entry);

}  // extern "C"

namespace qk::mem {

/** The bytes of a block's data area. */
[[nodiscard]] inline char* data_of(qk_mem_block& block) {
  return reinterpret_cast<char*>(&block) + Qk_mem_blocksize;
}

/** Whether no piece can have an alignment: 0 and less. The code is then set. */
[[nodiscard]] bool refuses(int alignment);

/** A piece where the present blocks have room, else null. Needs the handle's lock. */
[[nodiscard]] void* take_piece(qk_mem_handle& handle, std::size_t size, int alignment);

/**
 * The same, at once where the first block has room at its upper end, as it mostly has; null also
 * for an alignment that is no power of two.
 */
[[nodiscard]] inline void* take_piece_quickly(qk_mem_handle& handle, std::size_t size,
                                              int alignment) {
  assert_held(handle);
  qk_mem_block* head = handle.blocks;
  if (head == nullptr || alignment <= 0 || (alignment & (alignment - 1)) != 0) return nullptr;
  const std::uint64_t end = head->high_mark;
  const std::uint64_t offset = take_at_end(*head, size, static_cast<std::uint64_t>(alignment));
  if (offset == kNoRoom) return take_piece(handle, size, alignment);
  handle.block_used += head->high_mark - end;
  return data_of(*head) + offset;
}

/**
 * A piece of the handle's blocks, first fit, from a new block where none has room.
 *
 * @param alignment  counted from the start of a data area, which is aligned to 16.
 * @return null with the code set: 5022 for an alignment of 0 or less, else the allocator's code.
 */
[[nodiscard]] void* allocate_piece(qk_mem_handle& handle, std::size_t size, int alignment,
                                   const Site& site);

/**
 * Takes a piece back, or frees registered external memory: what a record stands for, whose address
 * is `ptr`. Without BLOCKFREE nothing happens to a piece. Room is regained only at the two ends of
 * what is live in a block.
 */
void release_piece(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record, const Site& site);

/** Warns, in the name of the release of pieces, that a pointer is unknown. */
void report_unknown_piece(const qk_mem_handle& handle, const void* ptr, const Site& site);

/**
 * Gives a piece back and hands out another one of `size` bytes, whose contents are not the old
 * ones. The place is what release and allocation in turn would find, and can be the old one.
 *
 * @param record     of `ptr`, which can also be external memory.
 * @param alignment  above 0.
 * @return null as allocate_piece() does; `ptr` is then as valid as before.
 */
[[nodiscard]] void* replace_piece(qk_mem_handle& handle, void* ptr, const qk_mem_ptr& record,
                                  std::size_t size, int alignment, const Site& site);

/** Empties all blocks. They stay with the handle. */
void reset_blocks(qk_mem_handle& handle);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_BLOCKS_H_
