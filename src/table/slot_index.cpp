#include "table/slot_index.h"

#include <cerrno>
#include <cstddef>

#include "support/system_memory.h"
#include "table/prints.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

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

/** Where the parts of an index begin, in bytes from the first bucket. */
struct SlotIndex::Layout {
  explicit Layout(int bits)
      : nodes(sizeof(SlotBucket) << bits),
        used(nodes + std::size_t{limit_for(bits)} * sizeof(qk::NumberTreeNode)),
        end(used + qk::NumberSet::words_for(limit_for(bits)) * sizeof(std::uint64_t)) {}

  /** The buckets begin at the first cache line behind the index itself. */
  [[nodiscard]] std::size_t bytes() const {
    return sizeof(SlotIndex) + alignof(SlotBucket) - 1 + end;
  }

  std::size_t nodes;
  std::size_t used;
  std::size_t end;
};

SlotIndex::SlotIndex(int bits) : bits_(bits) {
  const Layout layout(bits);
  constexpr std::uintptr_t kLine = alignof(SlotBucket);
  char* const end = reinterpret_cast<char*>(this + 1);
  char* const start = end + (0 - reinterpret_cast<std::uintptr_t>(end)) % kLine;
  buckets_ = reinterpret_cast<SlotBucket*>(start);
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

std::uint32_t SlotIndex::lowest_in_tree(const qk_mem_ptr* slots, const SlotBucket& bucket,
                                        const void* address) const {
  const std::uint32_t slot =
      qk::first_not_before(nodes_, bucket.root, sorted_before(slots, address, 0));
  return slot != 0 && address_in(slots[slot]) == address ? slot : 0;
}

void SlotIndex::add_to_tree(const qk_mem_ptr* slots, SlotBucket& bucket, std::uint32_t slot) {
  qk::add_to_tree(nodes_, bucket.root, slot, sorted_before(slots, address_in(slots[slot]), slot));
}

void SlotIndex::remove_searched(const qk_mem_ptr* slots, std::uint32_t slot) {
  const void* address = address_in(slots[slot]);
  SlotBucket& bucket = bucket_of(address);
  for (std::uint32_t rest = bucket.candidates(address); rest != 0; rest &= rest - 1) {
    const auto place = static_cast<std::uint32_t>(__builtin_ctz(rest));
    if (bucket.slots[place] == slot) return bucket.give_up(place);
  }
  const auto before = sorted_before(slots, address, slot);
  // A signal can have come before the slot was added; the handler then removes it.
  if (qk::first_not_before(nodes_, bucket.root, before) != slot) return;
  qk::remove_from_tree(nodes_, bucket.root, slot, before);
}

}  // namespace qk::mem
