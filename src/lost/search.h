#ifndef QKMEM_LOST_SEARCH_H_
#define QKMEM_LOST_SEARCH_H_

#include <cstdint>

#include "lost/areas.h"
#include "lost/blocks.h"
#include "support/mapped_array.h"
#include "support/modules.h"

namespace qk::mem::lost {

/** What has become of a block. */
enum class Fate : std::uint8_t {
  kKept,       // something that the program can reach leads to it
  kLost,       // nothing does: it, or a block of a cycle, is where a loss begins
  kWithOwner,  // only lost blocks lead to it
};

/**
 * The search for blocks that nothing refers to. Words at multiples of eight bytes are looked at, and
 * an address anywhere in a block refers to it. The words of a block that is kept count in turn.
 *
 * Memory is read as it is, so whoever searches sees to it that it stays.
 */
class Search {
 public:
  explicit Search(const Areas& areas) noexcept;

  /** False if there was no memory. */
  [[nodiscard]] bool is_complete() const {
    return owners_.capacity() == areas_.count() && waiting_.capacity() == areas_.count();
  }

  /** Keeps what the words of a range lead to. The range is readable, and no block is in it. */
  void keep_from(qk::AddressRange root);

  /** Keeps an area itself, and what its words lead to. */
  void keep(std::uint32_t area);

  /**
   * Tells the lost from those that only they lead to, once all is kept that should be. Of several
   * that lead to each other, the oldest that nothing else leads to is lost. Any one of several lost
   * ones can be the owner. False if there is no memory.
   */
  [[nodiscard]] bool find_owners(const Blocks& blocks);

  [[nodiscard]] Fate fate_of(std::uint32_t area) const;

  /** The lost area that one with an owner belongs to. */
  [[nodiscard]] std::uint32_t owner_of(std::uint32_t area);

 private:
  template <class Visit>
  void for_each_reference(qk::AddressRange range, Visit visit) const;
  void keep_found(std::uint32_t area, qk::AddressRange range);
  void keep_all_below();
  void own_all_below(std::uint32_t owner);

  static constexpr std::uint32_t kNotReached = kNoArea;
  static constexpr std::uint32_t kIsKept = kNoArea - 1;

  const Areas& areas_;
  qk::MappedArray<std::uint32_t> owners_;      // of areas that are lost: another one, or themselves
  qk::MappedArray<qk::AddressRange> waiting_;  // areas whose words have not been looked at
};

}  // namespace qk::mem::lost

#endif  // QKMEM_LOST_SEARCH_H_
