#ifndef QKMEM_TABLE_FIRST_FIT_H_
#define QKMEM_TABLE_FIRST_FIT_H_

#include <cstdint>

#include "core/records.h"

/**
 * The choice of the place for a piece: the first block of the list with room for it, at its upper
 * end or, where that is full, below what is live.
 *
 * A walk over all blocks for every piece would make handles of many small blocks slow, so the walk
 * remembers runs of blocks which it has looked at, each with the most room that any block of it
 * has. A request that is larger skips the run. The list then consists of
 *
 *     blocks made since | run | run | … | blocks not looked at yet
 *
 * Room only shrinks by allocation, so that a run's figure stays an upper bound; a walk through a
 * run that finds nothing makes it exact again; who makes room tells so by gained_room().
 *
 * All calls need the handle's lock.
 */
namespace qk::mem {

/** A place in a block's data area. */
struct Piece {
  qk_mem_block* block = nullptr;  // null: no block has room
  std::uint64_t offset = 0;
  std::uint64_t padding = 0;
};

/**
 * The offset of a piece at the upper end of a block, and the block's mark moved; kNoRoom when it
 * doesn't fit there. `alignment` is a power of two.
 */
inline constexpr std::uint64_t kNoRoom = UINT64_MAX;
[[nodiscard]] inline std::uint64_t take_at_end(qk_mem_block& block, std::uint64_t size,
                                               std::uint64_t alignment) {
  const std::uint64_t free = block.capacity - block.high_mark;
  const std::uint64_t padding = (0 - block.high_mark) & (alignment - 1);
  if (size > free || padding > free - size) return kNoRoom;
  const std::uint64_t offset = block.high_mark + padding;
  block.high_mark = offset + size;
  return offset;
}

/** Finds the place for a piece and moves the block's marks. `alignment` is above 0. */
[[nodiscard]] Piece take_first_fit(qk_mem_handle& handle, std::uint64_t size,
                                   std::uint64_t alignment);

/** After a failed take_first_fit(): a block that was linked in front, or had no room to give. */
void block_was_added(qk_mem_handle& handle, const qk_mem_block* head_before);

/** A block has more room than before. */
void gained_room(qk_mem_handle& handle, const qk_mem_block& block);

/** Everything can have changed. */
void forget_room(qk_mem_handle& handle);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_FIRST_FIT_H_
