#include "lost/search.h"

#include <algorithm>

namespace qk::mem::lost {
namespace {

/** Whatever the program has stored there. */
using Word [[gnu::may_alias]] = std::uintptr_t;

}  // namespace

Search::Search(const Areas& areas) noexcept
    : areas_(areas), owners_(areas.count()), waiting_(areas.count()) {
  for (std::size_t i = 0; i < owners_.capacity(); ++i) {
    static_cast<void>(owners_.push_back(kNotReached));
  }
}

/** Not only objects of the program are read, but whatever lies between them. */
template <class Visit>
[[gnu::no_sanitize_address, gnu::no_sanitize_thread]] void Search::for_each_reference(
    qk::AddressRange range, Visit visit) const {
  constexpr std::uintptr_t kWord = sizeof(Word);
  const auto* word =
      reinterpret_cast<const Word*>((range.begin + kWord - 1) & ~(kWord - 1));      // NOLINT
  const auto* const end = reinterpret_cast<const Word*>(range.end & ~(kWord - 1));  // NOLINT
  for (; word < end; ++word) {
    const std::uint32_t area = areas_.find(*word);
    if (area != kNoArea) visit(area, areas_.range_around(*word, area));
  }
}

void Search::keep_found(std::uint32_t area, qk::AddressRange range) {
  if (owners_[area] != kNotReached) return;
  owners_[area] = kIsKept;
  static_cast<void>(waiting_.push_back(range));
}

void Search::keep_from(qk::AddressRange root) {
  for_each_reference(
      root, [this](std::uint32_t area, qk::AddressRange range) { keep_found(area, range); });
  keep_all_below();
}

void Search::keep(std::uint32_t area) {
  keep_found(area, areas_.at(area).range);
  keep_all_below();
}

void Search::keep_all_below() {
  while (waiting_.size() != 0) {
    const qk::AddressRange next = waiting_[waiting_.size() - 1];
    waiting_.shrink(waiting_.size() - 1);
    for_each_reference(
        next, [this](std::uint32_t area, qk::AddressRange range) { keep_found(area, range); });
  }
}

/**
 * One that was taken for the beginning of a loss becomes part of this one. It can't lead here, or
 * this one had been reached before.
 */
void Search::own_all_below(std::uint32_t owner) {
  owners_[owner] = owner;
  static_cast<void>(waiting_.push_back(areas_.at(owner).range));
  while (waiting_.size() != 0) {
    const qk::AddressRange next = waiting_[waiting_.size() - 1];
    waiting_.shrink(waiting_.size() - 1);
    for_each_reference(next, [this, owner](std::uint32_t area, qk::AddressRange range) {
      if (owners_[area] == kNotReached) static_cast<void>(waiting_.push_back(range));
      if (owners_[area] == kNotReached || owners_[area] == area) owners_[area] = owner;
    });
  }
}

bool Search::find_owners(const Blocks& blocks) {
  const auto lost = static_cast<std::size_t>(
      std::count(owners_.begin(), owners_.end(), std::uint32_t{kNotReached}));
  qk::MappedArray<std::uint32_t> by_age(lost);
  if (by_age.capacity() < lost) return false;
  for (std::uint32_t i = 0; i < areas_.count(); ++i) {
    if (owners_[i] == kNotReached) static_cast<void>(by_age.push_back(i));
  }
  std::sort(by_age.begin(), by_age.end(), [&](std::uint32_t left, std::uint32_t right) {
    const std::uint32_t of_left = blocks[areas_.at(left).first_block].event;
    const std::uint32_t of_right = blocks[areas_.at(right).first_block].event;
    return of_left != of_right ? of_left < of_right : left < right;
  });
  for (const std::uint32_t area : by_age) {
    if (owners_[area] == kNotReached) own_all_below(area);
  }
  return true;
}

Fate Search::fate_of(std::uint32_t area) const {
  if (owners_[area] == kIsKept) return Fate::kKept;
  return owners_[area] == area ? Fate::kLost : Fate::kWithOwner;
}

/** Owners can have owners in turn, in rows as long as a list. Each look halves the way. */
std::uint32_t Search::owner_of(std::uint32_t area) {
  while (owners_[area] != area) {
    owners_[area] = owners_[owners_[area]];
    area = owners_[area];
  }
  return area;
}

}  // namespace qk::mem::lost
