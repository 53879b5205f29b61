#include "support/number_set.h"

namespace qk {
namespace {

constexpr std::uint32_t kBits = 64;
constexpr std::uint64_t kFull = ~std::uint64_t{0};

/** The words for so many bits. */
std::uint32_t words_of(std::uint32_t bits) noexcept {
  return bits / kBits + (bits % kBits != 0 ? 1 : 0);
}

std::uint64_t bit_of(std::uint32_t number) noexcept { return std::uint64_t{1} << (number % kBits); }

}  // namespace

std::size_t NumberSet::words_for(std::uint32_t limit) noexcept {
  std::size_t words = 0;
  do {
    limit = words_of(limit);
    words += limit;
  } while (limit > 1);
  return words;
}

NumberSet::NumberSet(std::uint64_t* words, std::uint32_t limit) noexcept {
  do {
    levels_[count_++] = {words, limit};
    limit = words_of(limit);
    words += limit;
  } while (limit > 1);
}

void NumberSet::add(std::uint32_t number) noexcept {
  for (int level = 0; level < count_; ++level) {
    std::uint64_t& word = levels_[level].words[number / kBits];
    word |= bit_of(number);
    if (word != kFull) return;
    number /= kBits;
  }
}

void NumberSet::remove(std::uint32_t number) noexcept {
  for (int level = 0; level < count_; ++level) {
    std::uint64_t& word = levels_[level].words[number / kBits];
    const bool was_full = word == kFull;
    word &= ~bit_of(number);
    if (!was_full) return;
    number /= kBits;
  }
}

bool NumberSet::contains(std::uint32_t number) const noexcept {
  return number < limit() && (levels_[0].words[number / kBits] & bit_of(number)) != 0;
}

std::uint32_t NumberSet::lowest_missing() const noexcept {
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

}  // namespace qk
