#include "table/slot_index.h"

#include <cerrno>
#include <cstddef>

#include "support/system_memory.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** Whether a slot is sorted before another one, which has an address. */
auto sorted_before(const qk_mem_ptr* slots, const void* address, std::uint32_t slot) {
  return [=](std::uint32_t other) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    const auto found = reinterpret_cast<std::uintptr_t>(address_in(slots[other]));
    return found < wanted || (found == wanted && other < slot);
  };
}

/** Between one and two slots for each root. */
int hash_bits_for(std::uint32_t limit) { return 31 - __builtin_clz(limit); }

}  // namespace

/** Where the parts of an index begin, in bytes. */
struct SlotIndex::Layout {
  Layout(std::uint32_t limit, int hash_bits)
      : nodes(sizeof(SlotIndex)),
        used(nodes + std::size_t{limit} * sizeof(qk::NumberTreeNode)),
        roots(used + qk::NumberSet::words_for(limit) * sizeof(std::uint64_t)),
        end(roots + (std::size_t{1} << hash_bits) * sizeof(std::uint32_t)) {}

  std::size_t nodes;
  std::size_t used;
  std::size_t roots;
  std::size_t end;
};

SlotIndex::SlotIndex(std::uint32_t limit, int hash_bits) : hash_bits_(hash_bits) {
  const Layout layout(limit, hash_bits);
  char* const start = reinterpret_cast<char*>(this);
  nodes_ = reinterpret_cast<qk::NumberTreeNode*>(start + layout.nodes);
  used_ = qk::NumberSet(reinterpret_cast<std::uint64_t*>(start + layout.used), limit);
  roots_ = reinterpret_cast<std::uint32_t*>(start + layout.roots);
  used_.add(0);  // the array's own record is never searched for
}

SlotIndex* SlotIndex::make(const qk_mem_ptr* slots, std::int32_t capacity) {
  const std::uint32_t limit = 2 * static_cast<std::uint32_t>(capacity);
  const int hash_bits = hash_bits_for(limit);
  const int error = errno;
  void* memory = own_memory::allocate_zeroed(1, Layout(limit, hash_bits).end);
  if (memory == nullptr) {
    errno = error;
    return nullptr;
  }
  auto* index = own_memory::make_in<SlotIndex>(memory, limit, hash_bits);
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
 * Addresses of the same 8 KiB have roots close to each other, since they are often used together.
 * All addresses of an array agree in the bits 4 to 6.
 */
std::uint32_t SlotIndex::hash_of(const void* address) const {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  const std::uint64_t number = reinterpret_cast<std::uintptr_t>(address);
  std::uint64_t hash = (number >> 13) * kFactor;
  hash = (hash ^ hash >> 32) * kFactor;
  return static_cast<std::uint32_t>(hash >> (64 - hash_bits_)) ^
         static_cast<std::uint32_t>(number >> 7 & 63);
}

std::int32_t SlotIndex::lowest_holding(const qk_mem_ptr* slots, const void* address) const {
  const std::uint32_t root = roots_[hash_of(address)];
  const std::uint32_t slot = qk::first_not_before(nodes_, root, sorted_before(slots, address, 0));
  return slot != 0 && address_in(slots[slot]) == address ? static_cast<std::int32_t>(slot) : 0;
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
  qk::add_to_tree(nodes_, roots_[hash_of(address)], number, sorted_before(slots, address, number));
  used_.add(number);
}

void SlotIndex::remove(const qk_mem_ptr* slots, std::int32_t slot) {
  const auto number = static_cast<std::uint32_t>(slot);
  const void* address = address_in(slots[slot]);
  qk::remove_from_tree(nodes_, roots_[hash_of(address)], number,
                       sorted_before(slots, address, number));
  used_.remove(number);
}

}  // namespace qk::mem
