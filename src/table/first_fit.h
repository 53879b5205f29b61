#ifndef QKMEM_TABLE_FIRST_FIT_H_
#define QKMEM_TABLE_FIRST_FIT_H_

#include <cstdint>

#include "core/records.h"

/**
 * First fit: a piece is taken from the first block of the list that has room for it, above the part
 * in use or, if there is no room, below it.
 *
 * A walk over all blocks for every piece would be slow on handles with many small blocks. So a walk
 * remembers runs of blocks that it has seen, each with the most room that any of its blocks has. A
 * larger request skips the run. The list then consists of
 *
 *     newer blocks | run | run | … | blocks not seen yet
 *
 * Allocation only takes room, so a run's figure stays an upper bound. A walk through a run that
 * finds nothing makes the figure exact again. Whatever makes room calls gained_room().
 *
 * All calls need the handle's lock.
 */
namespace qk::mem {

/** A piece of a block. */
struct Piece {
  qk_mem_block* block = nullptr;  // null if no block has room
  std::uint64_t offset = 0;
  std::uint64_t padding = 0;
};

/** What take_at_end() returns if there is no room. */
inline constexpr std::uint64_t kNoRoom = UINT64_MAX;

/**
 * Takes a piece at the upper end of a block and returns its offset; kNoRoom if it doesn't fit
 * there. `alignment` is a power of two.
 */
[[nodiscard]] inline std::uint64_t take_at_end(qk_mem_block& block, std::uint64_t size,
                                               std::uint64_t alignment) {
  const std::uint64_t free = block.capacity - block.high_mark;
  const std::uint64_t padding = (0 - block.high_mark) & (alignment - 1);
  if (size > free || padding > free - size) return kNoRoom;
  const std::uint64_t offset = block.high_mark + padding;
  block.high_mark = offset + size;
  return offset;
}

/** Finds a block with room, takes the piece and returns it. `alignment` is above 0. */
[[nodiscard]] Piece take_first_fit(qk_mem_handle& handle, std::uint64_t size,
                                   std::uint64_t alignment);

/**
 * Notes a new block after a take_first_fit() that failed. `head_before` was the first block then.
 */
void block_was_added(qk_mem_handle& handle, const qk_mem_block* head_before);

/** Notes that a block has more room than before. */
void gained_room(qk_mem_handle& handle, const qk_mem_block& block);

/** Forgets all runs, because any block may have changed. */
void forget_room(qk_mem_handle& handle);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_FIRST_FIT_H_
