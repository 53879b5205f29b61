#ifndef QKMEM_LOST_AREAS_H_
#define QKMEM_LOST_AREAS_H_

#include <cstdint>

#include "lost/blocks.h"
#include "support/mapped_array.h"
#include "support/modules.h"

namespace qk::mem::lost {

/** Memory that one or several blocks are in: an object can be recorded inside of another block. */
struct Area {
  qk::AddressRange range;
  std::uint32_t first_block;  // the others follow, up to that of the next area
};

inline constexpr std::uint32_t kNoArea = UINT32_MAX;

/**
 * The areas of all blocks, in the order of their addresses, and the area that an address lies in.
 *
 * Areas of less than a page are found by the pages that they touch, in a hash; the few others by a
 * binary search. Most words of a program are no addresses, so the first look is at the bounds.
 */
class Areas {
 public:
  /** Sorts the blocks, which must stay. */
  explicit Areas(Blocks& blocks) noexcept;

  /** False if there was no memory. */
  [[nodiscard]] bool is_complete() const { return is_complete_; }

  /** The area that an address lies in, or kNoArea. One past its end is not in it. */
  [[nodiscard]] std::uint32_t find(std::uintptr_t address) const {
    if (!bounds_.has(address)) [[likely]]
      return kNoArea;
    const std::uint32_t area = find_small(address);
    return area != kNoArea || large_.size() == 0 ? area : find_large(address);
  }

  /** The range of an area, from the address that it was found by. */
  [[nodiscard]] qk::AddressRange range_around(std::uintptr_t address, std::uint32_t number) const {
    const Extent& extent = extents_[number];
    if (extent.bytes == 0) return areas_[number].range;
    const std::uintptr_t begin = address - static_cast<std::uint32_t>(extent.distance_of(address));
    return {begin, begin + extent.bytes};
  }

  /** The first area that ends behind an address; count() if there is none. */
  [[nodiscard]] std::uint32_t first_behind(std::uintptr_t address) const;

  [[nodiscard]] std::uint32_t count() const { return static_cast<std::uint32_t>(areas_.size()); }
  [[nodiscard]] const Area& at(std::uint32_t number) const { return areas_[number]; }

  /** The number of the first block that doesn't belong to an area any more. */
  [[nodiscard]] std::uint32_t end_of_blocks(std::uint32_t number) const {
    return number + 1 < count() ? areas_[number + 1].first_block : block_count_;
  }

 private:
  static constexpr int kPageBits = 12;

  /**
   * A small area, in a third of the space, since a search is as quick as the cache: the low half of
   * where it begins, and its bytes. All 0 for a large one.
   */
  struct Extent {
    std::uint32_t begin;
    std::uint32_t bytes;

    /** How far behind the beginning an address lies; below 0 in front of it. It is near. */
    [[nodiscard]] std::int32_t distance_of(std::uintptr_t address) const {
      return static_cast<std::int32_t>(static_cast<std::uint32_t>(address) - begin);
    }
    [[nodiscard]] bool ends_by(std::uintptr_t address) const {
      return distance_of(address) >= static_cast<std::int32_t>(bytes);
    }
    [[nodiscard]] bool has(std::uintptr_t address) const {
      return distance_of(address) >= 0 && !ends_by(address);
    }
  };

  /** The small areas that touch a page: `count` of them from `first` on. */
  struct Page {
    std::uintptr_t number;  // 0 in a free entry
    std::uint32_t first;
    std::uint32_t count;
  };

  [[nodiscard]] bool is_large(const Area& area) const {
    return area.range.end - area.range.begin >= std::uintptr_t{1} << kPageBits;
  }
  [[nodiscard]] std::uint32_t entry_of(std::uintptr_t page) const;
  [[nodiscard]] std::uint32_t find_small(std::uintptr_t address) const;
  [[nodiscard]] std::uint32_t find_large(std::uintptr_t address) const;
  [[nodiscard]] bool join_blocks(Blocks& blocks);
  [[nodiscard]] std::size_t pages_of_small() const;
  [[nodiscard]] bool make_pages();
  void add_to_pages(std::uint32_t number);

  qk::MappedArray<Area> areas_;
  qk::MappedArray<Extent> extents_;  // of all areas
  std::uint32_t block_count_;
  qk::AddressRange bounds_;
  qk::MappedArray<std::uint32_t> large_;
  bool has_areas_;
  qk::MappedArray<Page> pages_;
  int shift_ = 63;  // of a hash, so that an entry remains
  bool is_complete_;
};

}  // namespace qk::mem::lost

#endif  // QKMEM_LOST_AREAS_H_
