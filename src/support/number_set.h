#ifndef SUPPORT_NUMBER_SET_H_
#define SUPPORT_NUMBER_SET_H_

#include <cstddef>
#include <cstdint>

namespace qk {

/**
 * A set of numbers below a limit, which finds the lowest missing one in a few steps. It has a bit
 * for each number. Above each 64 words of bits there is a word that says which are full, and
 * so on up to a single word.
 */
class NumberSet {
 public:
  /** The words of memory that a set of the numbers below `limit` needs. */
  [[nodiscard]] static std::size_t words_for(std::uint32_t limit) noexcept;

  /** A set of no numbers, which needs no memory. */
  constexpr NumberSet() = default;

  /** An empty set in `words`, which are zero and belong to the caller. `limit` is above 0. */
  NumberSet(std::uint64_t* words, std::uint32_t limit) noexcept;

  /** The numbers that the set can have are below this one. */
  [[nodiscard]] std::uint32_t limit() const noexcept { return levels_[0].bits; }

  /** Adds a number below the limit, if it is missing. */
  void add(std::uint32_t number) noexcept {
    for (int level = 0; level < count_; ++level) {
      std::uint64_t& word = levels_[level].words[number / kBits];
      word |= bit_of(number);
      if (word != kFull) [[likely]]
        return;
      number /= kBits;
    }
  }

  /** Removes a number below the limit, if it is in the set. */
  void remove(std::uint32_t number) noexcept {
    for (int level = 0; level < count_; ++level) {
      std::uint64_t& word = levels_[level].words[number / kBits];
      const bool was_full = word == kFull;
      word &= ~bit_of(number);
      if (!was_full) [[likely]]
        return;
      number /= kBits;
    }
  }

  [[nodiscard]] bool contains(std::uint32_t number) const noexcept {
    return number < limit() && (levels_[0].words[number / kBits] & bit_of(number)) != 0;
  }

  /** The lowest number that is not in the set; the limit if all below it are. */
  [[nodiscard]] std::uint32_t lowest_missing() const noexcept {
    std::uint32_t number = 0;
    for (int level = count_; level-- > 0;) {
      const std::uint64_t missing = ~levels_[level].words[number];
      if (missing == 0) return limit();
      number = number * kBits + static_cast<std::uint32_t>(__builtin_ctzll(missing));
      // Only bits behind the last one are missing, so all before it are set.
      if (number >= levels_[level].bits) return limit();
    }
    return number;
  }

 private:
  static constexpr std::uint32_t kBits = 64;
  static constexpr std::uint64_t kFull = ~std::uint64_t{0};

  [[nodiscard]] static constexpr std::uint64_t bit_of(std::uint32_t number) noexcept {
    return std::uint64_t{1} << (number % kBits);
  }

  /** The words for so many bits. */
  [[nodiscard]] static constexpr std::uint32_t words_of(std::uint32_t bits) noexcept {
    return bits / kBits + (bits % kBits != 0 ? 1 : 0);
  }

  /** Enough for 32 bits, of which a level takes six. */
  static constexpr int kMaxLevels = 6;

  struct Level {
    std::uint64_t* words;
    std::uint32_t bits;  // those behind the last one are never set
  };

  Level levels_[kMaxLevels] = {};  // the first one has the bits of the numbers
  int count_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_NUMBER_SET_H_
