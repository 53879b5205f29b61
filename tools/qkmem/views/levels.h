#ifndef QKMEM_TOOLS_VIEWS_LEVELS_H_
#define QKMEM_TOOLS_VIEWS_LEVELS_H_

#include <string>
#include <vector>

#include "views/query.h"

namespace qk::command {

/** A part of a timeline: when it begins, and the extremes of the level. */
struct Level {
  std::uint64_t from = 0;
  std::uint64_t lowest = 0;
  std::uint64_t highest = 0;
};

/** The timeline in so many parts at most; 0 for as many as there are. */
[[nodiscard]] std::vector<Level> levels_of(const Timeline& timeline, std::size_t most);

/** The highest level of each part as a row of bars as wide as the terminal lets it be. */
[[nodiscard]] std::string bars_of(const Query& query, const Timeline& timeline, std::size_t margin);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_LEVELS_H_
