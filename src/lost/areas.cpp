#include "lost/areas.h"

#include <algorithm>
#include <bit>

namespace qk::mem::lost {
namespace {

/** Half of the entries stay free, so that searches are short. */
std::size_t capacity_for(std::size_t pages) { return std::bit_ceil(2 * pages + 2); }

std::uintptr_t last_byte(const Area& area) { return area.range.end - 1; }

/** Of equal addresses the older block comes first. A young heap has given out rising addresses. */
void sort_by_address(Blocks& blocks) {
  const auto is_before = [](const Block& left, const Block& right) {
    if (left.range.begin != right.range.begin) return left.range.begin < right.range.begin;
    return left.event < right.event;
  };
  if (!std::is_sorted(blocks.begin(), blocks.end(), is_before)) {
    std::sort(blocks.begin(), blocks.end(), is_before);
  }
}

}  // namespace

Areas::Areas(Blocks& blocks) noexcept
    : areas_(blocks.size()),
      extents_(blocks.size()),
      block_count_(static_cast<std::uint32_t>(blocks.size())),
      large_(blocks.size()),
      has_areas_(join_blocks(blocks)),
      pages_(capacity_for(pages_of_small())),
      is_complete_(has_areas_ && make_pages()) {}

bool Areas::join_blocks(Blocks& blocks) {
  const std::size_t wanted = blocks.size();
  if (areas_.capacity() < wanted || extents_.capacity() < wanted || large_.capacity() < wanted) {
    return false;
  }
  sort_by_address(blocks);
  for (std::uint32_t i = 0; i < block_count_; ++i) {
    const qk::AddressRange& range = blocks[i].range;
    Area* const last = areas_.size() == 0 ? nullptr : areas_.end() - 1;
    if (last != nullptr && range.begin < last->range.end) {
      last->range.end = std::max(last->range.end, range.end);
    } else {
      static_cast<void>(areas_.push_back({range, i}));
    }
  }
  if (areas_.size() != 0) bounds_ = {areas_[0].range.begin, (areas_.end() - 1)->range.end};
  return true;
}

std::size_t Areas::pages_of_small() const {
  std::size_t pages = 0;
  std::uintptr_t counted = 0;
  for (const Area& area : areas_) {
    if (is_large(area)) continue;
    const std::uintptr_t last = last_byte(area) >> kPageBits;
    pages += last - std::max(area.range.begin >> kPageBits, counted + 1) + 1;
    counted = last;
  }
  return pages;
}

bool Areas::make_pages() {
  if (pages_.capacity() == 0) return false;
  shift_ = 64 - std::countr_zero(pages_.capacity());
  for (std::uint32_t i = 0; i < count(); ++i) {
    const qk::AddressRange& range = areas_[i].range;
    if (is_large(areas_[i])) {
      static_cast<void>(extents_.push_back({}));
      static_cast<void>(large_.push_back(i));
    } else {
      static_cast<void>(extents_.push_back({static_cast<std::uint32_t>(range.begin),
                                            static_cast<std::uint32_t>(range.end - range.begin)}));
      add_to_pages(i);
    }
  }
  return true;
}

/** Areas are added in their order, so those of a page are neighbors but for large ones. */
void Areas::add_to_pages(std::uint32_t number) {
  const std::uintptr_t last = last_byte(areas_[number]) >> kPageBits;
  for (std::uintptr_t page = areas_[number].range.begin >> kPageBits; page <= last; ++page) {
    Page& entry = pages_[entry_of(page)];
    if (entry.number == 0) entry = {page, number, 0};
    entry.count = number - entry.first + 1;
  }
}

/** The entry of a page, or the free one where it would be. */
std::uint32_t Areas::entry_of(std::uintptr_t page) const {
  const std::size_t mask = pages_.capacity() - 1;
  std::size_t at = (page * 0x9E3779B97F4A7C15U) >> shift_;
  while (pages_[at].number != page && pages_[at].number != 0) at = (at + 1) & mask;
  return static_cast<std::uint32_t>(at);
}

/**
 * Begins where the area is if those of the page have one size, as they often have. A large one is
 * never between them, since it is as long as the page.
 */
std::uint32_t Areas::find_small(std::uintptr_t address) const {
  const Page& page = pages_[entry_of(address >> kPageBits)];
  if (page.count == 0) return kNoArea;
  const std::uintptr_t offset = address & ((std::uintptr_t{1} << kPageBits) - 1);
  const std::uint32_t last = page.first + page.count - 1;
  auto area = page.first + static_cast<std::uint32_t>(offset * page.count >> kPageBits);
  while (area != page.first && extents_[area].distance_of(address) < 0) --area;
  while (area != last && extents_[area].ends_by(address)) ++area;
  return extents_[area].has(address) ? area : kNoArea;
}

std::uint32_t Areas::find_large(std::uintptr_t address) const {
  const std::uint32_t* const behind = std::partition_point(
      large_.begin(), large_.end(),
      [=, this](std::uint32_t area) { return areas_[area].range.begin <= address; });
  if (behind == large_.begin()) return kNoArea;
  return areas_[behind[-1]].range.has(address) ? behind[-1] : kNoArea;
}

std::uint32_t Areas::first_behind(std::uintptr_t address) const {
  const Area* const found = std::partition_point(
      areas_.begin(), areas_.end(), [=](const Area& area) { return area.range.end <= address; });
  return static_cast<std::uint32_t>(found - areas_.begin());
}

}  // namespace qk::mem::lost
