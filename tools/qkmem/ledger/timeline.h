#ifndef QKMEM_TOOLS_LEDGER_TIMELINE_H_
#define QKMEM_TOOLS_LEDGER_TIMELINE_H_

#include <algorithm>
#include <cstdint>
#include <vector>

namespace qk::command {

/**
 * A level over time, in at most kMost steps of equal width with the extremes of each. Time is events
 * or nanoseconds.
 */
class Timeline {
 public:
  static constexpr std::size_t kMost = 2048;

  struct Step {
    std::uint64_t lowest = UINT64_MAX;
    std::uint64_t highest = 0;
    [[nodiscard]] bool is_empty() const { return lowest > highest; }
  };

  void note(std::uint64_t time, std::uint64_t level) {
    if (steps_.empty()) first_ = time;
    // Threads can come a little late.
    const std::uint64_t passed = time > first_ ? time - first_ : 0;
    while (passed >> shift_ >= kMost) halve();
    const std::size_t at = passed >> shift_;
    if (at >= steps_.size()) steps_.resize(at + 1);
    steps_[at].lowest = std::min(steps_[at].lowest, level);
    steps_[at].highest = std::max(steps_[at].highest, level);
  }

  [[nodiscard]] std::uint64_t first() const { return first_; }
  [[nodiscard]] std::uint64_t width() const { return std::uint64_t{1} << shift_; }
  [[nodiscard]] const std::vector<Step>& steps() const { return steps_; }

 private:
  void halve() {
    ++shift_;
    for (std::size_t i = 0; i < steps_.size(); i += 2) {
      Step step = steps_[i];
      if (i + 1 < steps_.size()) {
        step.lowest = std::min(step.lowest, steps_[i + 1].lowest);
        step.highest = std::max(step.highest, steps_[i + 1].highest);
      }
      steps_[i / 2] = step;
    }
    steps_.resize((steps_.size() + 1) / 2);
  }

  std::uint64_t first_ = 0;
  unsigned shift_ = 0;
  std::vector<Step> steps_;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_TIMELINE_H_
