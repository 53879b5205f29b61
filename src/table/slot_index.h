#ifndef QKMEM_TABLE_SLOT_INDEX_H_
#define QKMEM_TABLE_SLOT_INDEX_H_

#include <cstdint>

#include "core/records.h"
#include "support/number_set.h"
#include "support/number_tree.h"

namespace qk::mem {

/**
 * Finds slots of a pointer array: by address, and the lowest free one. A hash of the address chooses
 * one of many buckets. A bucket has places for some slots, with their prints, and a tree for those
 * that come when the places are taken. In the tree slots are sorted by address and then by their
 * number, so no choice of addresses makes searches slow, and equal addresses don't either.
 *
 *     SlotIndex | buckets | a tree node for each slot | the set of used slots
 *
 * The slots themselves have the addresses. They can move, so each call is told where they are. All
 * calls need the lock of the handle.
 */
class SlotIndex {
 public:
  /**
   * An index of an array with room for its growth, in memory of its own.
   *
   * @return null, with errno as it was, if there is no memory.
   */
  [[nodiscard]] static SlotIndex* make(const qk_mem_ptr* slots, std::int32_t capacity);

  /** Frees an index. Null does nothing. */
  static void destroy(SlotIndex* index);

  /** For make(), in memory that is zero and large enough. There are two buckets to the `bits`. */
  explicit SlotIndex(int bits);
  SlotIndex(const SlotIndex&) = delete;
  SlotIndex& operator=(const SlotIndex&) = delete;

  /** Whether an array of this capacity is not too large for the index. */
  [[nodiscard]] bool has_room_for(std::int32_t capacity) const;

  /** The lowest slot that holds an address; 0 if there is none. */
  [[nodiscard]] std::int32_t lowest_holding(const qk_mem_ptr* slots, const void* address);

  /** The lowest free slot, which can be one behind the end of the array. */
  [[nodiscard]] std::int32_t lowest_free() const;

  [[nodiscard]] bool is_used(std::int32_t slot) const;

  /** Adds a slot that has got its address. */
  void add(const qk_mem_ptr* slots, std::int32_t slot);

  /** Removes a slot that still has its address. */
  void remove(const qk_mem_ptr* slots, std::int32_t slot);

 private:
  struct Bucket;
  struct Layout;

  [[nodiscard]] Bucket& bucket_of(const void* address) const;

  int bits_;
  std::uint32_t found_place_ = 0;  // where a slot was found: often it is removed next
  Bucket* found_bucket_;
  Bucket* buckets_;
  qk::NumberTreeNode* nodes_;
  qk::NumberSet used_;
};

}  // namespace qk::mem

#endif  // QKMEM_TABLE_SLOT_INDEX_H_
