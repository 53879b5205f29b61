#include "input/table_blocks.h"

#include <algorithm>

namespace qk::command {

TableBlocks::Added TableBlocks::add(HandleIndex handle, const Block& block) {
  Added added;
  if (const std::uint32_t here = find(handle, block.address); here != kNone) {
    // The library's own arrays move without a word of the old place.
    if (nodes_[here].block.site != kOwnSite && !settle_gone(here)) {
      added.in_place_of = nodes_[here].block;
      ledger_.gone(*added.in_place_of);
    }
    remove(here);
  }
  const std::uint32_t number = free_node();
  Node& node = nodes_[number];
  node.block = block;
  node.handle = handle;
  node.is_used = true;
  node.is_presumed_gone = false;
  table_.add(hash_of(block.address, handle), number);
  if (block.site == kOwnSite) return added;
  if (has_lists_of_sizes_) link_to_size(number);
  if (has_lists_of_handles_) list(number);
  ledger_.made(block);
  return added;
}

std::optional<Block> TableBlocks::take(HandleIndex handle, std::uint64_t address) {
  const std::uint32_t number = find(handle, address);
  if (number == kNone || !settle_live(number)) return std::nullopt;
  const Block block = nodes_[number].block;
  if (block.site != kOwnSite) ledger_.gone(block);
  remove(number);
  return block;
}

TableBlocks::Resized TableBlocks::take_resized(HandleIndex handle, std::uint64_t new_address,
                                               std::uint64_t old_bytes) {
  const std::uint32_t here = find(handle, new_address);
  if (here != kNone && nodes_[here].block.site != kOwnSite &&
      nodes_[here].block.bytes == old_bytes) {
    // A block of its size may have moved to its place as well, which comes to the same.
    return {take(handle, new_address), false, false};
  }
  if (old_bytes == 0) return {};
  if (!has_lists_of_sizes_) make_lists_of_sizes();
  const std::uint32_t newest = sizes_[size_of(handle, old_bytes)].newest_live;
  if (newest == kNone) return {std::nullopt, true, false};
  const bool had_choice = nodes_[newest].older != kNone;
  const Block block = nodes_[newest].block;
  ledger_.gone(block);
  presume(newest, true);
  return {block, true, had_choice};
}

void TableBlocks::take_all(HandleIndex handle) {
  if (!has_lists_of_handles_) make_lists_of_handles();
  if (handle >= lists_of_handles_.size()) return;
  for (const Mention& mention : lists_of_handles_[handle].take_all()) {
    if (!is_there(mention)) continue;
    const Node& node = nodes_[mention.number];
    if (!node.is_presumed_gone) ledger_.gone(node.block);
    remove(mention.number);
  }
}

/** A block lives. If it was presumed gone, another one of its size is. */
bool TableBlocks::settle_live(std::uint32_t number) {
  const Node& node = nodes_[number];
  if (!node.is_presumed_gone) return true;
  const std::uint32_t other = sizes_[node.size].newest_live;
  if (other == kNone) return false;
  ledger_.exchange(node.block, nodes_[other].block);
  presume(other, true);
  presume(number, false);
  return true;
}

/** A block is gone. If it was not presumed so, another one of its size lives, which was. */
bool TableBlocks::settle_gone(std::uint32_t number) {
  const Node& node = nodes_[number];
  if (node.is_presumed_gone) return true;
  if (!has_lists_of_sizes_) return false;
  const std::uint32_t other = sizes_[node.size].newest_presumed_gone;
  if (other == kNone) return false;
  ledger_.exchange(nodes_[other].block, node.block);
  presume(other, false);
  presume(number, true);
  return true;
}

void TableBlocks::presume(std::uint32_t number, bool is_gone) {
  unlink(number);
  nodes_[number].is_presumed_gone = is_gone;
  link(number);
}

std::uint32_t TableBlocks::find(HandleIndex handle, std::uint64_t address) const {
  return table_.find(hash_of(address, handle), [&](std::uint32_t number) {
    const Node& node = nodes_[number];
    return node.block.address == address && node.handle == handle;
  });
}

std::uint32_t TableBlocks::free_node() {
  if (free_ == kNone) {
    nodes_.emplace_back();
    return static_cast<std::uint32_t>(nodes_.size() - 1);
  }
  const std::uint32_t number = free_;
  free_ = nodes_[number].older;
  return number;
}

void TableBlocks::remove(std::uint32_t number) {
  Node& node = nodes_[number];
  table_.remove(hash_of(node.block.address, node.handle), number);
  if (has_lists_of_sizes_ && node.block.site != kOwnSite) unlink(number);
  ++node.generation;
  node.is_used = false;
  node.older = free_;
  free_ = number;
}

std::uint32_t TableBlocks::size_of(HandleIndex handle, std::uint64_t bytes) {
  const std::uint64_t hash = hash_of(bytes, handle);
  const std::uint32_t found = size_table_.find(hash, [&](std::uint32_t candidate) {
    return sizes_[candidate].bytes == bytes && sizes_[candidate].handle == handle;
  });
  if (found != kNone) return found;
  const auto added = static_cast<std::uint32_t>(sizes_.size());
  size_table_.add(hash, added);
  sizes_.push_back({bytes, handle});
  return added;
}

/** The program's blocks, the oldest first. */
std::vector<std::uint32_t> TableBlocks::all_of_program() const {
  std::vector<std::uint32_t> numbers;
  for (std::uint32_t number = 0; number < nodes_.size(); ++number) {
    if (nodes_[number].is_used && nodes_[number].block.site != kOwnSite) numbers.push_back(number);
  }
  std::stable_sort(numbers.begin(), numbers.end(), [this](std::uint32_t one, std::uint32_t other) {
    return nodes_[one].block.made.event < nodes_[other].block.made.event;
  });
  return numbers;
}

void TableBlocks::make_lists_of_sizes() {
  has_lists_of_sizes_ = true;
  for (const std::uint32_t number : all_of_program()) link_to_size(number);
}

void TableBlocks::make_lists_of_handles() {
  has_lists_of_handles_ = true;
  for (const std::uint32_t number : all_of_program()) list(number);
}

void TableBlocks::link_to_size(std::uint32_t number) {
  Node& node = nodes_[number];
  node.size = size_of(node.handle, node.block.bytes);
  link(number);
}

void TableBlocks::link(std::uint32_t number) {
  Node& node = nodes_[number];
  std::uint32_t& newest = newest_of(node);
  node.newer = kNone;
  node.older = newest;
  if (newest != kNone) nodes_[newest].newer = number;
  newest = number;
}

void TableBlocks::unlink(std::uint32_t number) {
  const Node& node = nodes_[number];
  if (node.older != kNone) nodes_[node.older].newer = node.newer;
  (node.newer != kNone ? nodes_[node.newer].older : newest_of(node)) = node.older;
}

void TableBlocks::list(std::uint32_t number) {
  const Node& node = nodes_[number];
  if (node.handle >= lists_of_handles_.size()) lists_of_handles_.resize(node.handle + 1);
  lists_of_handles_[node.handle].add({number, node.generation},
                                     [this](const Mention& mention) { return is_there(mention); });
}

}  // namespace qk::command
