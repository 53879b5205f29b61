#include "table/slot_index.h"

#include <cerrno>
#include <cstddef>

#include "support/system_memory.h"
#include "table/prints.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** Places in a bucket. */
constexpr std::uint32_t kPlaces = 11;

/** With more slots than this for each bucket an index is too small. */
constexpr std::uint32_t kSlotsPerBucket = 7;

/** The slots that an index of 2 to the `bits` buckets has room for. */
constexpr std::uint32_t limit_for(int bits) { return kSlotsPerBucket << bits; }

int bits_for(std::int32_t capacity) {
  int bits = 0;
  while (limit_for(bits) < static_cast<std::uint32_t>(capacity)) ++bits;
  return bits;
}

/** Whether a slot is sorted before another one, which has an address. */
auto sorted_before(const qk_mem_ptr* slots, const void* address, std::uint32_t slot) {
  return [=](std::uint32_t other) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    const auto found = reinterpret_cast<std::uintptr_t>(address_in(slots[other]));
    return found < wanted || (found == wanted && other < slot);
  };
}

}  // namespace

/** A cache line. */
struct alignas(64) SlotIndex::Bucket {
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

/** Where the parts of an index begin, in bytes from the first bucket. */
struct SlotIndex::Layout {
  explicit Layout(int bits)
      : nodes(sizeof(Bucket) << bits),
        used(nodes + std::size_t{limit_for(bits)} * sizeof(qk::NumberTreeNode)),
        end(used + qk::NumberSet::words_for(limit_for(bits)) * sizeof(std::uint64_t)) {}

  /** The buckets begin at the first cache line behind the index itself. */
  [[nodiscard]] std::size_t bytes() const { return sizeof(SlotIndex) + alignof(Bucket) - 1 + end; }

  std::size_t nodes;
  std::size_t used;
  std::size_t end;
};

SlotIndex::SlotIndex(int bits) : bits_(bits) {
  const Layout layout(bits);
  constexpr std::uintptr_t kLine = alignof(Bucket);
  char* const end = reinterpret_cast<char*>(this + 1);
  char* const start = end + (0 - reinterpret_cast<std::uintptr_t>(end)) % kLine;
  buckets_ = reinterpret_cast<Bucket*>(start);
  found_bucket_ = buckets_;
  nodes_ = reinterpret_cast<qk::NumberTreeNode*>(start + layout.nodes);
  used_ = qk::NumberSet(reinterpret_cast<std::uint64_t*>(start + layout.used), limit_for(bits));
  used_.add(0);  // the array's own record is never searched for
}

SlotIndex* SlotIndex::make(const qk_mem_ptr* slots, std::int32_t capacity) {
  const int bits = bits_for(capacity);
  const int error = errno;
  void* memory = own_memory::allocate_zeroed(1, Layout(bits).bytes());
  if (memory == nullptr) {
    errno = error;
    return nullptr;
  }
  auto* index = own_memory::make_in<SlotIndex>(memory, bits);
  for (std::int32_t slot = 1; slot < capacity; ++slot) {
    if (address_in(slots[slot]) != nullptr) index->add(slots, slot);
  }
  return index;
}

void SlotIndex::destroy(SlotIndex* index) { own_memory::release(index); }

bool SlotIndex::has_room_for(std::int32_t capacity) const {
  return static_cast<std::uint32_t>(capacity) <= used_.limit();
}

/**
 * Addresses of the same 8 KiB have buckets close to each other, since they are often used together.
 * All addresses of an array agree in the bits 4 to 6.
 */
SlotIndex::Bucket& SlotIndex::bucket_of(const void* address) const {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  const std::uint64_t number = reinterpret_cast<std::uintptr_t>(address);
  std::uint64_t hash = (number >> 13) * kFactor;
  hash = ((hash ^ hash >> 32) * kFactor) >> 32;
  const std::uint64_t close = number >> 7 & 63;
  return buckets_[((hash >> (32 - bits_)) ^ close) & ((std::uint64_t{1} << bits_) - 1)];
}

std::int32_t SlotIndex::lowest_holding(const qk_mem_ptr* slots, const void* address) {
  Bucket& bucket = bucket_of(address);
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
    const std::uint32_t slot =
        qk::first_not_before(nodes_, bucket.root, sorted_before(slots, address, 0));
    const bool is_found = slot != 0 && address_in(slots[slot]) == address;
    if (is_found && (lowest == 0 || slot < lowest)) lowest = slot;
  }
  return static_cast<std::int32_t>(lowest);
}

std::int32_t SlotIndex::lowest_free() const {
  return static_cast<std::int32_t>(used_.lowest_missing());
}

bool SlotIndex::is_used(std::int32_t slot) const {
  return used_.contains(static_cast<std::uint32_t>(slot));
}

void SlotIndex::add(const qk_mem_ptr* slots, std::int32_t slot) {
  const auto number = static_cast<std::uint32_t>(slot);
  const void* address = address_in(slots[slot]);
  Bucket& bucket = bucket_of(address);
  constexpr std::uint32_t kAll = (1U << kPlaces) - 1;
  const std::uint32_t free_places = kAll & ~bucket.taken();
  if (free_places != 0) [[likely]] {
    bucket.take(static_cast<std::uint32_t>(__builtin_ctz(free_places)), number, address);
  } else {
    qk::add_to_tree(nodes_, bucket.root, number, sorted_before(slots, address, number));
  }
  used_.add(number);
}

void SlotIndex::remove(const qk_mem_ptr* slots, std::int32_t slot) {
  const auto number = static_cast<std::uint32_t>(slot);
  used_.remove(number);
  if (found_bucket_->has_in(found_place_, number)) return found_bucket_->give_up(found_place_);
  const void* address = address_in(slots[slot]);
  Bucket& bucket = bucket_of(address);
  for (std::uint32_t rest = bucket.candidates(address); rest != 0; rest &= rest - 1) {
    const auto place = static_cast<std::uint32_t>(__builtin_ctz(rest));
    if (bucket.slots[place] == number) return bucket.give_up(place);
  }
  const auto before = sorted_before(slots, address, number);
  // A signal can have come before the slot was added; the handler then removes it.
  if (qk::first_not_before(nodes_, bucket.root, before) != number) return;
  qk::remove_from_tree(nodes_, bucket.root, number, before);
}

}  // namespace qk::mem
