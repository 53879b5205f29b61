#include "input/recording_blocks.h"

#include <algorithm>
#include <utility>

namespace qk::command {

bool RecordingBlocks::add(const Block& block) {
  std::size_t at = place_of(block.made.event);
  if (is_used(places_[at])) return false;
  if (++count_ * 2 > places_.size()) {
    grow();
    at = place_of(block.made.event);
  }
  places_[at] = block;
  if (has_lists_) list(block);
  return true;
}

void RecordingBlocks::take_all_of(HandleIndex handle,
                                  const std::function<void(const Block&)>& taken) {
  if (!has_lists_) list_all();
  if (handle >= lists_.size()) return;
  for (const std::uint64_t number : lists_[handle].take_all()) {
    const Block* const found = find(number);
    if (found == nullptr) continue;
    const Block block = *found;
    remove(*found);
    taken(block);
  }
}

/** What stands behind it moves up, unless it would then stand in front of its own place. */
void RecordingBlocks::remove(const Block& block) {
  auto gap = static_cast<std::size_t>(&block - places_.data());
  for (std::size_t at = next(gap); is_used(places_[at]); at = next(at)) {
    const std::size_t home = home_of(places_[at].made.event);
    if (distance(home, at) < distance(gap, at)) continue;
    places_[gap] = places_[at];
    gap = at;
  }
  places_[gap].site = kOwnSite;
  --count_;
}

void RecordingBlocks::grow() {
  const std::size_t more = 2 * places_.size() + 1;
  const LargeArray<Block> old = std::exchange(places_, LargeArray<Block>(more, kFree));
  reciprocal_ = reciprocal_of(more);
  for (const Block& block : old) {
    if (is_used(block)) places_[place_of(block.made.event)] = block;
  }
}

void RecordingBlocks::list(const Block& block) {
  const HandleIndex handle = ledger_.sites().at(block.site).handle;
  if (handle >= lists_.size()) lists_.resize(handle + 1);
  lists_[handle].add(block.made.event,
                     [this](std::uint64_t number) { return find(number) != nullptr; });
}

void RecordingBlocks::list_all() {
  has_lists_ = true;
  std::vector<Block> blocks;
  std::copy_if(places_.begin(), places_.end(), std::back_inserter(blocks), &is_used);
  std::sort(blocks.begin(), blocks.end(),
            [](const Block& one, const Block& other) { return one.made.event < other.made.event; });
  for (const Block& block : blocks) list(block);
}

}  // namespace qk::command
