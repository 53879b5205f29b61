#include "support/number_set.h"

namespace qk {

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

}  // namespace qk
