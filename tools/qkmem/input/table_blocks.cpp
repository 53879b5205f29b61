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
  node = {};
  node.block = block;
  node.handle = handle;
  node.is_used = true;
  table_.add(hash_of(block.address, handle), number);
  if (block.site == kOwnSite) return added;
  link_to_handle(number);
  if (has_lists_) link(number);
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
  if (!has_lists_) make_lists();
  const List& candidates = size_of(handle, old_bytes).live;
  const std::uint32_t newest = candidates.newest;
  if (newest == kNone) return {std::nullopt, true, false};
  const bool had_choice = candidates.count > 1;
  const Block block = nodes_[newest].block;
  ledger_.gone(block);
  presume(newest, true);
  return {block, true, had_choice};
}

void TableBlocks::take_all(HandleIndex handle) {
  if (handle >= first_of_handle_.size()) return;
  while (first_of_handle_[handle] != kNone) {
    const std::uint32_t number = first_of_handle_[handle];
    if (!nodes_[number].is_presumed_gone) ledger_.gone(nodes_[number].block);
    remove(number);
  }
}

/** A block lives. If it was presumed gone, another one of its size is. */
bool TableBlocks::settle_live(std::uint32_t number) {
  const Node& node = nodes_[number];
  if (!node.is_presumed_gone) return true;
  const std::uint32_t other = size_of(node.handle, node.block.bytes).live.newest;
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
  if (!has_lists_) return false;
  const std::uint32_t other = size_of(node.handle, node.block.bytes).presumed_gone.newest;
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
  if (node.block.site != kOwnSite) {
    if (has_lists_) unlink(number);
    if (node.next != kNone) nodes_[node.next].before = node.before;
    (node.before != kNone ? nodes_[node.before].next : first_of_handle_[node.handle]) = node.next;
  }
  node.is_used = false;
  node.older = free_;
  free_ = number;
}

void TableBlocks::link_to_handle(std::uint32_t number) {
  Node& node = nodes_[number];
  if (node.handle >= first_of_handle_.size()) first_of_handle_.resize(node.handle + 1, kNone);
  std::uint32_t& first = first_of_handle_[node.handle];
  node.next = first;
  if (first != kNone) nodes_[first].before = number;
  first = number;
}

TableBlocks::Size& TableBlocks::size_of(HandleIndex handle, std::uint64_t bytes) {
  const std::uint64_t hash = hash_of(bytes, handle);
  const std::uint32_t number = size_table_.find(hash, [&](std::uint32_t candidate) {
    return sizes_[candidate].bytes == bytes && sizes_[candidate].handle == handle;
  });
  if (number != kNone) return sizes_[number];
  size_table_.add(hash, static_cast<std::uint32_t>(sizes_.size()));
  return sizes_.emplace_back(Size{bytes, handle, {}, {}});
}

TableBlocks::List& TableBlocks::list_of(const Node& node) {
  Size& size = size_of(node.handle, node.block.bytes);
  return node.is_presumed_gone ? size.presumed_gone : size.live;
}

void TableBlocks::make_lists() {
  has_lists_ = true;
  std::vector<std::uint32_t> numbers;
  for (std::uint32_t number = 0; number < nodes_.size(); ++number) {
    if (nodes_[number].is_used && nodes_[number].block.site != kOwnSite) numbers.push_back(number);
  }
  std::stable_sort(numbers.begin(), numbers.end(), [this](std::uint32_t one, std::uint32_t other) {
    return nodes_[one].block.made.event < nodes_[other].block.made.event;
  });
  for (const std::uint32_t number : numbers) link(number);
}

void TableBlocks::link(std::uint32_t number) {
  Node& node = nodes_[number];
  List& list = list_of(node);
  node.newer = kNone;
  node.older = list.newest;
  if (list.newest != kNone) nodes_[list.newest].newer = number;
  list.newest = number;
  ++list.count;
}

void TableBlocks::unlink(std::uint32_t number) {
  const Node& node = nodes_[number];
  List& list = list_of(node);
  if (node.older != kNone) nodes_[node.older].newer = node.newer;
  (node.newer != kNone ? nodes_[node.newer].older : list.newest) = node.older;
  --list.count;
}

}  // namespace qk::command
