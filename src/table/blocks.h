#ifndef QKMEM_TABLE_BLOCKS_H_
#define QKMEM_TABLE_BLOCKS_H_

#include <cstddef>
#include <cstdint>

#include "core/registry.h"
#include "table/first_fit.h"

/**
 * The blocks of a block-managed handle and the pieces that are handed out from them. A block is in
 * use between two marks:
 *
 *     header | free below low_mark | pieces, and pieces given back between them | free to capacity
 *                                  ^ low_mark                                   ^ high_mark
 *
 * A piece that is given back moves a mark if it lies at one. Room elsewhere returns only when the
 * handle is cleared. An empty block has both marks at 0.
 */
namespace qk::mem {

/** The first byte of a block's data area. */
[[nodiscard]] inline char* data_of(qk_mem_block& block) {
  return reinterpret_cast<char*>(&block) + Qk_mem_blocksize;
}

/** Whether a pointer lies in the data area of a block. */
[[nodiscard]] inline bool lies_in(qk_mem_block& block, const void* ptr) {
  const auto address = reinterpret_cast<std::uintptr_t>(ptr);
  const auto data = reinterpret_cast<std::uintptr_t>(data_of(block));
  return address >= data && address - data < block.capacity;
}

/** Bytes of the data area of a new block for a request: at least the handle's block size. */
[[nodiscard]] inline std::uint64_t capacity_for(const qk_mem_handle& handle, std::size_t size) {
  return size < handle.blocksize ? handle.blocksize : size;
}

/** Bytes of a block with a data area of `capacity` bytes, header included. */
[[nodiscard]] std::size_t bytes_of_block(std::uint64_t capacity);

/** A piece of the existing blocks, or null if none has room. Needs the handle's lock. */
[[nodiscard]] void* take_piece(qk_mem_handle& handle, std::size_t size, int alignment);

/**
 * The same in a few instructions, if there is a cursor for the request and its block has room at
 * the upper end, which is the usual case. Otherwise null. Needs the handle's lock.
 */
[[nodiscard, gnu::always_inline]] inline void* take_piece_fast(qk_mem_handle& handle,
                                                               std::size_t size, int alignment) {
  assert_held(handle);
  const std::uint64_t number = cursor_for(size, static_cast<std::uint64_t>(alignment));
  if (number >= qk_mem_skips::kCursors) return nullptr;
  qk_mem_block* block = handle.skips.cursors[number];
  if (block == nullptr) [[unlikely]]
    return nullptr;
  const std::uint64_t end = block->high_mark;
  const std::uint64_t offset = (end + kCursorAlignment - 1) & ~(kCursorAlignment - 1);
  if (offset + size > block->capacity) return nullptr;
  block->high_mark = offset + size;
  handle.block_used += offset + size - end;
  return data_of(*block) + offset;
}

/**
 * Allocates an empty block for a request, not linked yet. Null, with errno set, if there is no
 * memory.
 */
[[nodiscard]] qk_mem_block* allocate_block(const qk_mem_handle& handle, std::size_t size);

/**
 * Links an empty block that allocate_block() made for `size`, and charges the handle for it. Takes
 * the handle's lock.
 */
void link_empty_block(qk_mem_handle& handle, qk_mem_block& block, std::size_t size);

/** Links such a block and takes a piece of `size` bytes from its start. Needs the handle's lock. */
[[nodiscard]] void* take_from_new_block(qk_mem_handle& handle, qk_mem_block& block,
                                        std::size_t size);

/** The block that a pointer lies in, or null. Needs the handle's lock. */
[[nodiscard]] qk_mem_block* block_of(qk_mem_handle& handle, const void* ptr);

/** Takes a piece of `amount` bytes back into its block. Needs the handle's lock. */
void reclaim(qk_mem_handle& handle, qk_mem_block& block, const void* ptr, std::uint64_t amount);

/**
 * The same for a piece of any block. Takes the handle's lock. False if the piece lies in no block.
 */
[[nodiscard]] bool reclaim_piece(qk_mem_handle& handle, const void* ptr, std::uint64_t amount);

/** Empties all blocks, which stay with the handle. Takes the handle's lock. */
void reset_blocks(qk_mem_handle& handle);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_BLOCKS_H_
