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
 * Most requests are small and aligned to 16. Their sizes are classes of 16 each: 1 to 16, 17 to 32
 * and so on. Each class has a cursor: no block before it has room for any request of the class. A
 * cursor moves on as blocks fill up, so that a request usually looks at one block.
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

/** The alignment of the requests that cursors serve. */
inline constexpr std::uint64_t kCursorAlignment = 16;

/** The number of the cursor for a request; qk_mem_skips::kCursors or more if there is none. */
[[nodiscard]] inline std::uint64_t cursor_for(std::uint64_t size, std::uint64_t alignment) {
  return alignment == kCursorAlignment ? (size - 1) / kCursorAlignment : UINT64_MAX;
}

/** The smallest request that a cursor serves. */
[[nodiscard]] inline std::uint64_t smallest_for_cursor(std::uint64_t number) {
  return number * kCursorAlignment + 1;
}

/** Finds a block with room, takes the piece and returns it. `alignment` is above 0. */
[[nodiscard]] Piece take_first_fit(qk_mem_handle& handle, std::uint64_t size,
                                   std::uint64_t alignment);

/**
 * Notes a new block after a take_first_fit() that failed. `head_before` was the first block then.
 */
void block_was_added(qk_mem_handle& handle, const qk_mem_block* head_before);

/** Notes that a block has more room than before. */
void gained_room(qk_mem_handle& handle, qk_mem_block& block);

/** Forgets all runs, because any block may have changed. */
void forget_room(qk_mem_handle& handle);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_FIRST_FIT_H_
