#include "views/calls.h"

#include <algorithm>
#include <cstdlib>

#include "views/names.h"

namespace qk::command {
namespace {

/** A call that takes several lines can be noted at another one of them. */
bool holds(const Frame& frame, const SiteKey& site) {
  constexpr int kLines = 2;
  return !frame.file.empty() && base_of(frame.file) == base_of(site.file) &&
         std::abs(frame.line - site.line) <= kLines;
}

}  // namespace

std::vector<Frame> calls_to(const Ledger& ledger, const SiteKey& site) {
  const auto& frames = ledger.program().frames;
  if (site.stack == kNoStack || site.stack >= frames.size()) return {};
  const std::vector<Frame>& stack = frames[site.stack];
  // Functions that are given the caller's line, and pass it on, come before the one that holds it.
  const auto holder = std::find_if(stack.begin(), stack.end(),
                                   [&site](const Frame& frame) { return holds(frame, site); });
  return {holder == stack.end() ? stack.begin() : holder, stack.end()};
}

}  // namespace qk::command
