#ifndef QKMEM_TABLE_BLOCK_INDEX_H_
#define QKMEM_TABLE_BLOCK_INDEX_H_

#include <cstdint>

#include "core/records.h"
#include "support/number_tree.h"

namespace qk::mem {

/**
 * Finds the block of a handle that an address lies in: a tree of all blocks, sorted by their
 * addresses. It has memory of its own. All calls need the lock of the handle.
 *
 *     BlockIndex | a node for each block | the address of each block
 */
class BlockIndex {
 public:
  /**
   * An index of a list of blocks, with room for as many more.
   *
   * @return null, with errno as it was, if there is no memory.
   */
  [[nodiscard]] static BlockIndex* make(qk_mem_block* first);

  /** Frees an index. Null does nothing. */
  static void destroy(BlockIndex* index);

  /** For make(), in memory that is zero and large enough. */
  explicit BlockIndex(std::uint32_t limit);
  BlockIndex(const BlockIndex&) = delete;
  BlockIndex& operator=(const BlockIndex&) = delete;

  [[nodiscard]] bool is_full() const { return count_ == limit_; }

  /** Adds a block to an index that is not full. */
  void add(qk_mem_block& block);

  /** The block that a pointer lies in, or null. */
  [[nodiscard]] qk_mem_block* containing(const void* ptr);

 private:
  std::uint32_t limit_;
  std::uint32_t count_ = 0;
  std::uint32_t root_ = 0;
  qk_mem_block* found_last_ = nullptr;  // often the next pointer lies in it too
  qk::NumberTreeNode* nodes_;
  qk_mem_block** blocks_;  // by their numbers, from 1 on
};

}  // namespace qk::mem

#endif  // QKMEM_TABLE_BLOCK_INDEX_H_
