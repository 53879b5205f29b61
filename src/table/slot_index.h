#ifndef QKMEM_TABLE_SLOT_INDEX_H_
#define QKMEM_TABLE_SLOT_INDEX_H_

#include <cstdint>

#include "core/records.h"
#include "support/number_set.h"
#include "support/number_tree.h"
#include "table/slot.h"
#include "table/slot_bucket.h"

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
  struct Layout;

  [[nodiscard]] SlotBucket& bucket_of(const void* address) const;

  /** The steps of lowest_holding(), add() and remove() for the tree of a bucket. */
  [[nodiscard]] std::uint32_t lowest_in_tree(const qk_mem_ptr* slots, const SlotBucket& bucket,
                                             const void* address) const;
  void add_to_tree(const qk_mem_ptr* slots, SlotBucket& bucket, std::uint32_t slot);
  void remove_searched(const qk_mem_ptr* slots, std::uint32_t slot);

  int bits_;
  std::uint32_t found_place_ = 0;  // where a slot was found: often it is removed next
  SlotBucket* found_bucket_;
  SlotBucket* buckets_;
  qk::NumberTreeNode* nodes_;
  qk::NumberSet used_;
};

/**
 * Addresses of the same 8 KiB have buckets close to each other, since they are often used together.
 * All addresses of an array agree in the bits 4 to 6.
 */
inline SlotBucket& SlotIndex::bucket_of(const void* address) const {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  const std::uint64_t number = reinterpret_cast<std::uintptr_t>(address);
  std::uint64_t hash = (number >> 13) * kFactor;
  hash = ((hash ^ hash >> 32) * kFactor) >> 32;
  const std::uint64_t close = number >> 7 & 63;
  return buckets_[((hash >> (32 - bits_)) ^ close) & ((std::uint64_t{1} << bits_) - 1)];
}

inline std::int32_t SlotIndex::lowest_holding(const qk_mem_ptr* slots, const void* address) {
  SlotBucket& bucket = bucket_of(address);
  std::uint32_t lowest = 0;
  for (std::uint32_t rest = bucket.candidates(address); rest != 0; rest &= rest - 1) {
    const auto place = static_cast<std::uint32_t>(__builtin_ctz(rest));
    const std::uint32_t slot = bucket.slots[place];
    if (address_in(slots[slot]) != address || (lowest != 0 && lowest < slot)) continue;
    lowest = slot;
    found_place_ = place;
    found_bucket_ = &bucket;
  }
  if (bucket.root != 0) [[unlikely]] {
    const std::uint32_t slot = lowest_in_tree(slots, bucket, address);
    if (slot != 0 && (lowest == 0 || slot < lowest)) lowest = slot;
  }
  return static_cast<std::int32_t>(lowest);
}

inline std::int32_t SlotIndex::lowest_free() const {
  return static_cast<std::int32_t>(used_.lowest_missing());
}

inline bool SlotIndex::is_used(std::int32_t slot) const {
  return used_.contains(static_cast<std::uint32_t>(slot));
}

inline void SlotIndex::add(const qk_mem_ptr* slots, std::int32_t slot) {
  const auto number = static_cast<std::uint32_t>(slot);
  const void* address = address_in(slots[slot]);
  SlotBucket& bucket = bucket_of(address);
  constexpr std::uint32_t kAll = (1U << SlotBucket::kPlaces) - 1;
  const std::uint32_t free_places = kAll & ~bucket.taken();
  if (free_places != 0) [[likely]] {
    bucket.take(static_cast<std::uint32_t>(__builtin_ctz(free_places)), number, address);
  } else {
    add_to_tree(slots, bucket, number);
  }
  used_.add(number);
}

inline void SlotIndex::remove(const qk_mem_ptr* slots, std::int32_t slot) {
  const auto number = static_cast<std::uint32_t>(slot);
  used_.remove(number);
  if (found_bucket_->has_in(found_place_, number)) [[likely]]
    return found_bucket_->give_up(found_place_);
  remove_searched(slots, number);
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_SLOT_INDEX_H_
