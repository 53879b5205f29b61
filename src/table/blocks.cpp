#include "table/blocks.h"

#include <utility>

#include "check/unused.h"
#include "core/kinds.h"
#include "profile/notes.h"
#include "support/shortcuts.h"
#include "support/system_memory.h"
#include "table/block_index.h"
#include "table/pointer_table.h"

namespace qk::mem {
namespace {

bool is_big(const qk_mem_handle& handle, std::size_t size) { return handle.blocksize <= size; }

/**
 * A big block is full at once. It is linked behind the blocks at the front that have room, so that
 * they stay at the front.
 *
 * @return the block to link it behind; null to link it in front.
 */
qk_mem_block* predecessor_of_big_block(const qk_mem_handle& handle) {
  qk_mem_block* block = handle.blocks;
  if (block == nullptr) return nullptr;
  auto has_room = [](const qk_mem_block& next) { return next.high_mark < next.capacity; };
  while (block->next != nullptr && has_room(*block->next)) block = block->next;
  return block->next == nullptr ? nullptr : block;
}

/** A full index is dropped, and the next search makes a larger one. */
void note_in_index(BlockIndex*& index, qk_mem_block& block) {
  if (index == nullptr) return;
  if (index->is_full()) {
    BlockIndex::destroy(std::exchange(index, nullptr));
  } else {
    index->add(block);
  }
}

void link_block(qk_mem_handle& handle, qk_mem_block& block, std::size_t size) {
  assert_held(handle);
  qk_mem_block* before = is_big(handle, size) ? predecessor_of_big_block(handle) : nullptr;
  qk_mem_block*& link = before == nullptr ? handle.blocks : before->next;
  check::fill_unused(handle, data_of(block), block.capacity);
  block.next = link;
  link = &block;
  note_in_index(handle.block_index, block);
  qk::add(handle.num_blocks, 1);
  add_bytes(handle, ChargedTo::kData, bytes_of_block(block.capacity));
}

/** The block from `first` on that a pointer lies in, or null. */
qk_mem_block* search(qk_mem_block* first, const void* ptr) {
  while (first != nullptr && !lies_in(*first, ptr)) first = first->next;
  return first;
}

/** Fills what was between the marks of a block and is not any more. */
void fill_given_up(qk_mem_handle& handle, qk_mem_block& block, std::uint64_t low_mark,
                   std::uint64_t high_mark) {
  if (block.high_mark == 0) {
    check::fill_unused(handle, data_of(block) + low_mark, high_mark - low_mark);
    return;
  }
  check::fill_unused(handle, data_of(block) + low_mark, block.low_mark - low_mark);
  check::fill_unused(handle, data_of(block) + block.high_mark, high_mark - block.high_mark);
}

/** A handle with no more blocks than this needs no index. */
constexpr int kFewBlocks = 16;

}  // namespace

std::size_t bytes_of_block(std::uint64_t capacity) { return sum(capacity, Qk_mem_blocksize); }

void* take_piece(qk_mem_handle& handle, std::size_t size, int alignment) {
  assert_held(handle);
  const Piece piece = take_first_fit(handle, size, static_cast<std::uint64_t>(alignment));
  if (piece.block == nullptr) return nullptr;
  handle.block_used += size + piece.padding;
  return data_of(*piece.block) + piece.offset;
}

qk_mem_block* allocate_block(const qk_mem_handle& handle, std::size_t size) {
  const std::uint64_t capacity = capacity_for(handle, size);
  auto* block = static_cast<qk_mem_block*>(own_memory::allocate(bytes_of_block(capacity)));
  if (block != nullptr) *block = {nullptr, capacity, 0, 0};
  return block;
}

void link_empty_block(qk_mem_handle& handle, qk_mem_block& block, std::size_t size) {
  const HandleLock lock(handle);
  link_block(handle, block, size);
  forget_room(handle);
}

void* take_from_new_block(qk_mem_handle& handle, qk_mem_block& block, std::size_t size) {
  assert_held(handle);
  const qk_mem_block* head = handle.blocks;
  link_block(handle, block, size);
  block.high_mark = size;
  block_was_added(handle, head);
  handle.block_used += size;
  return data_of(block);
}

qk_mem_block* block_of(qk_mem_handle& handle, const void* ptr) {
  assert_held(handle);
  if (handle.block_index != nullptr) return handle.block_index->containing(ptr);
  qk_mem_block* block = handle.blocks;
  for (int i = 0; i < kFewBlocks && block != nullptr; ++i, block = block->next) {
    if (lies_in(*block, ptr)) return block;
  }
  if (block == nullptr) return nullptr;
  if constexpr (!qk::kShortcuts) return search(block, ptr);
  handle.block_index = BlockIndex::make(handle.blocks);
  return handle.block_index == nullptr ? search(block, ptr) : handle.block_index->containing(ptr);
}

void reclaim(qk_mem_handle& handle, qk_mem_block& block, const void* ptr, std::uint64_t amount) {
  assert_held(handle);
  const auto offset = static_cast<std::uint64_t>(static_cast<const char*>(ptr) - data_of(block));
  // A piece larger than all that is in use has been dropped from this block already.
  if (amount > block.high_mark - block.low_mark) return;
  const std::uint64_t low_mark = block.low_mark;
  const std::uint64_t high_mark = block.high_mark;
  if (offset == block.low_mark) {
    block.low_mark += amount;
  } else if (offset == block.high_mark - amount) {
    block.high_mark -= amount;
  }
  if (block.low_mark == block.high_mark) {
    block.low_mark = 0;
    block.high_mark = 0;
  }
  fill_given_up(handle, block, low_mark, high_mark);
  gained_room(handle, block);
}

bool reclaim_piece(qk_mem_handle& handle, const void* ptr, std::uint64_t amount) {
  const HandleLock lock(handle);
  qk_mem_block* block = block_of(handle, ptr);
  if (block == nullptr) return false;
  reclaim(handle, *block, ptr, amount);
  return true;
}

void reset_blocks(qk_mem_handle& handle) {
  const HandleLock lock(handle);
  for (qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    check::fill_unused(handle, data_of(*block) + block->low_mark,
                       block->high_mark - block->low_mark);
    block->low_mark = 0;
    block->high_mark = 0;
  }
  profile::note_blocks_empty(handle);
  forget_room(handle);
}

}  // namespace qk::mem
