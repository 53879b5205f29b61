#include "input/recording_blocks.h"

#include <algorithm>
#include <utility>

namespace qk::command {

bool RecordingBlocks::add(const Block& block) {
  if (is_used(places_[find(block.made.event)])) return false;
  if (++count_ * 2 > places_.size()) grow();
  place(block);
  if (has_lists_) list(block);
  return true;
}

std::optional<Block> RecordingBlocks::take(std::uint64_t number) {
  const std::size_t at = find(number);
  if (!is_used(places_[at])) return std::nullopt;
  const Block block = places_[at];
  remove(at);
  return block;
}

void RecordingBlocks::take_all_of(HandleIndex handle,
                                  const std::function<void(const Block&)>& taken) {
  if (!has_lists_) list_all();
  if (handle >= lists_.size()) return;
  const Numbers of_handle = std::exchange(lists_[handle], {});
  for (const std::uint64_t number : of_handle.numbers) {
    if (const std::optional<Block> block = take(number)) taken(*block);
  }
}

/** The place of a number, or the one that it would get. */
std::size_t RecordingBlocks::find(std::uint64_t number) const {
  std::size_t at = number & mask();
  while (is_used(places_[at]) && places_[at].made.event != number) at = (at + 1) & mask();
  return at;
}

void RecordingBlocks::place(const Block& block) { places_[find(block.made.event)] = block; }

/** What stands behind a gap moves up, unless it would then stand in front of its own place. */
void RecordingBlocks::remove(std::size_t gap) {
  for (std::size_t at = (gap + 1) & mask(); is_used(places_[at]); at = (at + 1) & mask()) {
    const std::size_t home = places_[at].made.event & mask();
    if (((at - home) & mask()) < ((at - gap) & mask())) continue;
    places_[gap] = places_[at];
    gap = at;
  }
  places_[gap].site = kOwnSite;
  --count_;
}

void RecordingBlocks::grow() {
  const std::vector<Block> old =
      std::exchange(places_, std::vector<Block>(places_.size() * 2, Block{0, 0, {}, kOwnSite}));
  for (const Block& block : old) {
    if (is_used(block)) place(block);
  }
}

void RecordingBlocks::list(const Block& block) {
  const HandleIndex handle = ledger_.sites().at(block.site).handle;
  if (handle >= lists_.size()) lists_.resize(handle + 1);
  Numbers& of_handle = lists_[handle];
  if (of_handle.numbers.size() >= of_handle.look_again) leave_out_gone(of_handle);
  of_handle.numbers.push_back(block.made.event);
}

void RecordingBlocks::list_all() {
  has_lists_ = true;
  std::vector<Block> blocks;
  std::copy_if(places_.begin(), places_.end(), std::back_inserter(blocks), &is_used);
  std::sort(blocks.begin(), blocks.end(),
            [](const Block& one, const Block& other) { return one.made.event < other.made.event; });
  for (const Block& block : blocks) list(block);
}

/** Half of a list at least is live behind this, so that it takes little time for each block. */
void RecordingBlocks::leave_out_gone(Numbers& of_handle) const {
  std::erase_if(of_handle.numbers,
                [this](std::uint64_t number) { return !is_used(places_[find(number)]); });
  of_handle.look_again = std::max(kFirstPlaces, 2 * of_handle.numbers.size());
}

}  // namespace qk::command
