#include "page/rows.h"

#include <algorithm>
#include <map>
#include <utility>

namespace qk::command {
namespace {

// A page of that many draws at once, and more can't be told apart in it.
constexpr std::size_t kMostShown = 300;
constexpr std::size_t kMostHandles = 100;

PageRow row_for(Group group) { return {std::move(group.sites), 1, false, group.figures}; }

void add(PageRow& rest, Group group) {
  rest.sites.insert(rest.sites.end(), group.sites.begin(), group.sites.end());
  ++rest.groups;
  rest.figures.add(group.figures);
}

/** What people tell handles apart by: one that is made anew is the same one to them. */
std::pair<int, std::string> key_of(const Ledger& ledger, SiteIndex site) {
  const Handle& handle = ledger.handles()[ledger.sites().at(site).handle];
  return {handle.number, handle.tag};
}

bool held_more(const Figures& one, const Figures& other) {
  return one.highest.bytes != other.highest.bytes ? one.highest.bytes > other.highest.bytes
                                                  : one.made.bytes > other.made.bytes;
}

}  // namespace

PageRows rows_of(const Query& query, const Ledger& ledger) {
  Query by_stack = query;
  by_stack.by = ledger.program().stacks.empty() ? By::kSite : By::kStack;
  std::vector<Group> groups = groups_of(by_stack, ledger, Sort::kPeak);
  std::stable_sort(groups.begin(), groups.end(), [](const Group& one, const Group& other) {
    return held_more(one.figures, other.figures);
  });
  PageRows rows;
  rows.groups = groups.size();
  rows.shown = std::min(groups.size(), kMostShown);
  for (std::size_t i = 0; i < rows.shown; ++i) rows.rows.push_back(row_for(std::move(groups[i])));
  const PageRow nothing = {{}, 0, true, {}};
  std::map<std::pair<int, std::string>, PageRow> rests;
  PageRow others = nothing;
  for (std::size_t i = rows.shown; i < groups.size(); ++i) {
    const auto key = key_of(ledger, groups[i].sites.front());
    auto rest = rests.find(key);
    if (rest == rests.end() && rests.size() < kMostHandles) {
      rest = rests.emplace(key, nothing).first;
    }
    add(rest == rests.end() ? others : rest->second, std::move(groups[i]));
  }
  for (auto& [key, rest] : rests) rows.rows.push_back(std::move(rest));
  if (others.groups != 0) rows.rows.push_back(std::move(others));
  return rows;
}

}  // namespace qk::command
