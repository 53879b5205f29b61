#ifndef QKMEM_TABLE_SLOT_BUCKET_H_
#define QKMEM_TABLE_SLOT_BUCKET_H_

#include <cstdint>

#include "table/prints.h"

namespace qk::mem {

/** A cache line of a SlotIndex: places for slots, and the tree of those that came later. */
struct alignas(64) SlotBucket {
  /** Places in a bucket. */
  static constexpr std::uint32_t kPlaces = 11;

  Prints prints;  // of the slots in the places
  std::uint32_t slots[kPlaces];
  std::uint32_t root;  // of the tree; 0 if it is empty

  // The last two prints belong to no place. Their bits say which places are taken.
  static constexpr int kTakenShift = 48;
  static_assert(kPlaces <= kPrints - 2);

  /** Bit n is set if place n is taken. */
  [[nodiscard]] std::uint32_t taken() const {
    return static_cast<std::uint32_t>(prints[1] >> kTakenShift);
  }

  /** Bit n is set if the slot in place n can have the address. */
  [[nodiscard]] std::uint32_t candidates(const void* address) const {
    return prints_with(prints, print_of(address)) & taken();
  }

  [[nodiscard]] bool has_in(std::uint32_t place, std::uint32_t slot) const {
    return slots[place] == slot && (taken() >> place & 1) != 0;
  }

  void take(std::uint32_t place, std::uint32_t slot, const void* address) {
    slots[place] = slot;
    set_print(prints, place, print_of(address));
    prints[1] |= std::uint64_t{1} << (kTakenShift + place);
  }

  void give_up(std::uint32_t place) { prints[1] &= ~(std::uint64_t{1} << (kTakenShift + place)); }
};

}  // namespace qk::mem

#endif  // QKMEM_TABLE_SLOT_BUCKET_H_
