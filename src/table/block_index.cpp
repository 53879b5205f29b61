#include "table/block_index.h"

#include <cerrno>
#include <cstddef>

#include "support/system_memory.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

std::uint32_t length_of(const qk_mem_block* block) {
  std::uint32_t length = 0;
  for (; block != nullptr; block = block->next) ++length;
  return length;
}

/** Number 0 stands for no block, so its node and its address are not used. */
std::size_t bytes_for(std::uint32_t limit) {
  const std::size_t numbers = std::size_t{limit} + 1;
  return sizeof(BlockIndex) + numbers * (sizeof(qk::NumberTreeNode) + sizeof(qk_mem_block*));
}

auto begins_below(qk_mem_block* const* blocks, const void* address) {
  return [=](std::uint32_t number) {
    return reinterpret_cast<std::uintptr_t>(blocks[number]) <
           reinterpret_cast<std::uintptr_t>(address);
  };
}

}  // namespace

BlockIndex::BlockIndex(std::uint32_t limit)
    : limit_(limit),
      nodes_(reinterpret_cast<qk::NumberTreeNode*>(this + 1)),
      blocks_(reinterpret_cast<qk_mem_block**>(nodes_ + limit + 1)) {}

BlockIndex* BlockIndex::make(qk_mem_block* first) {
  const std::uint32_t limit = 2 * length_of(first);
  const int error = errno;
  void* memory = own_memory::allocate_zeroed(1, bytes_for(limit));
  if (memory == nullptr) {
    errno = error;
    return nullptr;
  }
  auto* index = own_memory::make_in<BlockIndex>(memory, limit);
  for (qk_mem_block* block = first; block != nullptr; block = block->next) index->add(*block);
  return index;
}

void BlockIndex::destroy(BlockIndex* index) { own_memory::release(index); }

void BlockIndex::add(qk_mem_block& block) {
  const std::uint32_t number = ++count_;
  blocks_[number] = &block;
  qk::add_to_tree(nodes_, root_, number, begins_below(blocks_, &block));
}

qk_mem_block* BlockIndex::containing(const void* ptr) {
  if (found_last_ != nullptr && lies_in(*found_last_, ptr)) return found_last_;
  // The header is a part of the block, so only the last block that begins below can have it.
  qk_mem_block* block = blocks_[qk::last_before(nodes_, root_, begins_below(blocks_, ptr))];
  if (block == nullptr || !lies_in(*block, ptr)) return nullptr;
  return found_last_ = block;
}

}  // namespace qk::mem
