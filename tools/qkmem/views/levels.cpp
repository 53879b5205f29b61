#include "views/levels.h"

#include <algorithm>
#include <cmath>

namespace qk::command {
namespace {

constexpr std::string_view kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::string_view kLetters[] = {" ", ".", ":", "-", "=", "+", "*", "%", "#"};
constexpr std::uint64_t kSteps = std::size(kBlocks) - 1;

/** Something is never shown as nothing. */
std::size_t step_of(std::uint64_t level, std::uint64_t highest) {
  if (level == 0) return 0;
  const double part = static_cast<double>(level) / static_cast<double>(highest);
  return std::clamp<std::size_t>(static_cast<std::size_t>(std::lround(part * kSteps)), 1, kSteps);
}

}  // namespace

std::vector<Level> levels_of(const Timeline& timeline, std::size_t most) {
  const std::vector<Timeline::Step>& steps = timeline.steps();
  if (most == 0 || most > steps.size()) most = steps.size();
  std::vector<Level> levels(most);
  std::uint64_t before = 0;  // nothing has changed in steps without an event
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const std::size_t at = i * most / steps.size();
    const bool is_first = i == 0 || (i - 1) * most / steps.size() != at;
    Level& level = levels[at];
    const std::uint64_t lowest = steps[i].is_empty() ? before : steps[i].lowest;
    const std::uint64_t highest = steps[i].is_empty() ? before : steps[i].highest;
    if (is_first) level = {timeline.first() + i * timeline.width(), lowest, highest};
    level.lowest = std::min(level.lowest, lowest);
    level.highest = std::max(level.highest, highest);
    before = highest;
  }
  return levels;
}

std::string bars_of(const Query& query, const Timeline& timeline, std::size_t margin) {
  constexpr std::size_t kLeast = 10;
  constexpr std::size_t kMost = 120;
  const std::size_t room = query.width > margin ? query.width - margin : 0;
  const std::vector<Level> levels = levels_of(timeline, std::clamp(room, kLeast, kMost));
  std::uint64_t highest = 0;
  for (const Level& level : levels) highest = std::max(highest, level.highest);
  std::string bars;
  for (const Level& level : levels) {
    const std::size_t step = step_of(level.highest, highest);
    bars += query.is_ascii ? kLetters[step] : kBlocks[step];
  }
  return bars;
}

}  // namespace qk::command
