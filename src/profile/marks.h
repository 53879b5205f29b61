#ifndef QKMEM_PROFILE_MARKS_H_
#define QKMEM_PROFILE_MARKS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/records.h"
#include "profile/site.h"
#include "profile/state.h"

namespace qk::mem::profile {

/** Which site allocated a block, and when. It stands beside the block's record. */
struct Mark {
  std::uint32_t site;   // the lower kSiteBits, and the flags below; the other bits are free
  std::uint32_t event;  // the lower half of its number

  /** The block stands for others, see profile/sampling.h. */
  static constexpr std::uint32_t kSampled = 1U << kSiteBits;
  /** It was registered: not every call that releases memory suits it. */
  static constexpr std::uint32_t kRegistered = kSampled << 1;
  /** It was allocated while the profile was off: its release is not booked either. */
  static constexpr std::uint32_t kUnbooked = kSampled << 2;
  /** There is a guard behind it, and one in front of it, see check/guards.h. */
  static constexpr std::uint32_t kGuarded = kSampled << 3;
  static constexpr std::uint32_t kGuardedInFront = kSampled << 4;
  /** Damage to its guards was told. */
  static constexpr std::uint32_t kDamageTold = kSampled << 5;

  [[nodiscard]] static Mark of_word(std::uint64_t word) {
    return {static_cast<std::uint32_t>(word), static_cast<std::uint32_t>(word >> 32)};
  }
  [[nodiscard]] std::uint64_t word() const { return std::uint64_t{event} << 32 | site; }
  [[nodiscard]] std::uint32_t site_number() const { return site & ((1U << kSiteBits) - 1); }
  [[nodiscard]] std::uint32_t flags() const { return site & ~((1U << kSiteBits) - 1); }
  [[nodiscard]] bool is_sampled() const { return (site & kSampled) != 0; }
  [[nodiscard]] bool is_booked() const { return (site & kUnbooked) == 0; }
  [[nodiscard]] bool is_guarded() const { return (site & (kGuarded | kGuardedInFront)) != 0; }
  /** Not every call may release it as if it was the system's allocator's and nothing else. */
  [[nodiscard]] bool needs_care() const {
    return (site & (kRegistered | kGuarded | kGuardedInFront)) != 0;
  }
  /**
   * The block was allocated, stands for itself, and is on a site that is not one of the two of each
   * pool.
   */
  [[nodiscard]] bool is_plain() const { return site <= kMaxSites; }
};

/** What the mark of a new block will say of it: its site, which can be null, and flags. */
struct Origin {
  Site* site = nullptr;
  std::uint32_t flags = 0;
  std::uint32_t era = 0;  // of a piece: that of the pool when it was taken
};

/**
 * The marks of one pointer array, by slot. Every record that is written into a slot leaves its
 * mark, so that of a free slot doesn't matter. The caller holds the lock of the handle.
 */
class Marks {
 public:
  [[nodiscard]] bool has(std::int32_t slot) const {
    return static_cast<std::uint32_t>(slot) < capacity_;
  }

  /** The mark of a slot that has one. */
  [[nodiscard]] Mark& at(std::int32_t slot) const { return marks_[slot]; }

  /**
   * Sets the mark of a slot that has one, as one word: a read of both halves, as a release does it
   * soon, would have to wait for two.
   */
  void set(std::int32_t slot, Mark mark) const {
    const std::uint64_t word = mark.word();
    std::memcpy(&marks_[slot], &word, sizeof word);
  }

  /** The mark of a slot; null if there was no memory for it. */
  [[nodiscard]] Mark* of(std::int32_t slot) { return has(slot) ? &at(slot) : nullptr; }

  /**
   * The same, and makes room for it. Once there was no memory there is no more room: the slots that
   * have gone without a mark must not seem to have one.
   */
  [[nodiscard]] Mark* provide(std::int32_t slot) {
    if (!has(slot) && !is_full_) [[unlikely]]
      make_room(static_cast<std::uint32_t>(slot) + 1);
    return of(slot);
  }

  /** Takes flags from all marks. */
  void clear_flags(std::uint32_t flags) {
    for (std::uint32_t i = 0; i < capacity_; ++i) marks_[i].site &= ~flags;
  }

  /** Drops all marks. */
  void release();

 private:
  void make_room(std::uint32_t least);

  Mark* marks_;
  std::uint32_t capacity_;
  bool is_full_;

 protected:  // since clang warns of private members that nothing uses
  // As far apart as the arrays, so that an array leads to its marks without a division.
  std::byte unused_[sizeof(qk_mem_ptr_array) - 16];
};
static_assert(sizeof(Marks) == sizeof(qk_mem_ptr_array));

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_MARKS_H_
