#include "profile/address_table.h"

#include <algorithm>

#include "support/mtx_lock.h"

namespace qk::mem::profile {
namespace {

constexpr std::uint64_t kFirstCapacity = 64;

std::size_t bytes_of(std::uint64_t capacity) { return capacity * sizeof(Unrecorded); }

}  // namespace

/** Memory that was allocated in a row is close together here too. */
std::uint64_t AddressTable::home_of(const void* address) const {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  const auto number = reinterpret_cast<std::uintptr_t>(address);
  const std::uint64_t hash = (number >> 12) * kFactor;
  return ((hash ^ hash >> 32) + (number >> 4)) & (capacity_ - 1);
}

void AddressTable::place(const Unrecorded& memory) {
  std::uint64_t i = home_of(memory.address);
  while (entries_[i].address != nullptr) i = next(i);
  entries_[i] = memory;
}

bool AddressTable::make_room() {
  const AddressTable before = *this;
  const std::uint64_t capacity = capacity_ == 0 ? kFirstCapacity : 2 * capacity_;
  const qk::MtxLock lock(growth_lock);
  auto* const entries = static_cast<Unrecorded*>(arena.take(bytes_of(capacity)));
  if (entries == nullptr) return false;
  entries_ = entries;
  capacity_ = capacity;
  for (std::uint64_t i = 0; i < before.capacity_; ++i) {
    if (before.entries_[i].address != nullptr) place(before.entries_[i]);
  }
  // A search for lost blocks must not take an old entry for a reference.
  std::fill_n(before.entries_, before.capacity_, Unrecorded{});
  arena.give_back(before.entries_, bytes_of(before.capacity_));
  return true;
}

bool AddressTable::add(const Unrecorded& memory) {
  // One entry in four stays free, so that searches are short and end.
  if (4 * (used_ + 1) > 3 * capacity_ && !make_room()) return false;
  place(memory);
  ++used_;
  return true;
}

std::optional<Unrecorded> AddressTable::take(const void* address) {
  if (used_ == 0) return std::nullopt;
  std::uint64_t i = home_of(address);
  while (entries_[i].address != address) {
    if (entries_[i].address == nullptr) return std::nullopt;
    i = next(i);
  }
  const Unrecorded found = entries_[i];
  close_gap(i);
  --used_;
  return found;
}

void AddressTable::clear() {
  if (used_ == 0) return;
  std::fill_n(entries_, capacity_, Unrecorded{});
  used_ = 0;
}

/** Moves entries back that a search would not find behind a free one. */
void AddressTable::close_gap(std::uint64_t gap) {
  for (std::uint64_t i = next(gap); entries_[i].address != nullptr; i = next(i)) {
    const std::uint64_t distance = (i - home_of(entries_[i].address)) & (capacity_ - 1);
    if (distance < ((i - gap) & (capacity_ - 1))) continue;
    entries_[gap] = entries_[i];
    gap = i;
  }
  entries_[gap] = {};
}

}  // namespace qk::mem::profile
