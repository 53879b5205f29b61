#ifndef SUPPORT_PAGE_ARENA_H_
#define SUPPORT_PAGE_ARENA_H_

#include <cstddef>
#include <cstdint>

#include "support/modules.h"

namespace qk {

/**
 * Memory in mappings of its own, for tables that must not touch the program's heap. What is given
 * back serves requests of the same size class. All calls need one thread at a time.
 *
 * Constant initialized and never destroyed: its memory stays until the process ends.
 */
class PageArena {
 public:
  constexpr PageArena() noexcept = default;
  PageArena(const PageArena&) = delete;
  PageArena& operator=(const PageArena&) = delete;

  /** Sets how many bytes the mappings may have together. What is mapped already stays. */
  void set_limit(std::uint64_t bytes) noexcept { limit_ = bytes; }

  /** The alignment of memory of so many bytes or more: a line of the processor's cache. */
  static constexpr std::size_t kAlignment = 64;

  /**
   * Returns memory that is zero and aligned to kAlignment, or to 16 if it is smaller than that.
   * Null, with errno as it was, if the limit or the system refuses.
   */
  [[nodiscard]] void* take(std::size_t bytes) noexcept;

  /** Takes back memory of take(), with the size that was asked for. Null does nothing. */
  void give_back(void* memory, std::size_t bytes) noexcept;

  /** Whether memory is of one of the mappings; of some it isn't known if they are far apart. */
  [[nodiscard]] bool has(const void* memory) const noexcept;

  /** Bytes of all mappings, in use or not. */
  [[nodiscard]] std::uint64_t mapped() const noexcept;

 private:
  static constexpr int kMostRanges = 16;
  static constexpr int kClasses = 28;  // of 16 bytes to 2 GiB, each twice the one before

  struct Free {
    Free* next;
  };

  [[nodiscard]] char* map(std::size_t bytes) noexcept;
  void note(AddressRange pages) noexcept;
  [[nodiscard]] void* carve(std::size_t bytes) noexcept;

  std::uint64_t limit_ = UINT64_MAX;
  std::uint64_t mapped_ = 0;
  char* next_ = nullptr;  // the rest of the newest chunk
  std::size_t left_ = 0;
  Free* free_[kClasses] = {};
  AddressRange ranges_[kMostRanges] = {};  // of the mappings, of which most lie side by side
};

}  // namespace qk

#endif  // SUPPORT_PAGE_ARENA_H_
