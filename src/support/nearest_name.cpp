#include "support/nearest_name.h"

#include <algorithm>
#include <array>

#include "support/text.h"

namespace qk {
namespace {

/** What is longer is not looked at. */
constexpr std::size_t kLongest = 64;

/** How many letters have to be changed, added or removed to make one word of another. */
std::size_t distance(std::string_view word, std::string_view name) {
  word = word.substr(0, kLongest);
  name = name.substr(0, kLongest);
  std::array<std::size_t, kLongest + 1> row = {};
  for (std::size_t i = 0; i <= word.size(); ++i) row[i] = i;
  for (std::size_t j = 0; j < name.size(); ++j) {
    std::size_t diagonal = row[0];
    row[0] = j + 1;
    for (std::size_t i = 0; i < word.size(); ++i) {
      const bool same = lower(word[i]) == lower(name[j]);
      const std::size_t replaced = diagonal + (same ? 0 : 1);
      diagonal = row[i + 1];
      row[i + 1] = std::min({replaced, row[i] + 1, diagonal + 1});
    }
  }
  return row[word.size()];
}

}  // namespace

void NearestName::try_name(std::string_view name) noexcept {
  const std::size_t distance_to_name = distance(word_, name);
  if (distance_to_name >= distance_) return;
  distance_ = distance_to_name;
  name_ = name;
}

}  // namespace qk
