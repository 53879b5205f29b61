#include "views/pairs.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace qk::command {
namespace {

/** What a site keeps when lines are added in front of it. */
using Place = std::tuple<std::string, std::string, std::string>;

Place place_of(const Side& side, std::size_t group) {
  const SiteKey& site = side.site(group);
  if (side.query.by != By::kSite) return {side.groups[group].name, {}, handle_of(side, group)};
  return {std::string(site.file), std::string(site.label), handle_of(side, group)};
}

class Pairs {
 public:
  Pairs(const Side& before, const Side& after)
      : before_(before),
        after_(after),
        is_before_paired_(before.groups.size()),
        is_after_paired_(after.groups.size()) {
    pair([](const SiteKey& one, const SiteKey& other) { return one.line == other.line; });
    // Lines that are left on both sides have moved: the first is the first, and so on.
    pair([](const SiteKey& /*one*/, const SiteKey& /*other*/) { return true; });
    for (std::size_t i = 0; i < before_.groups.size(); ++i) {
      if (!is_before_paired_[i]) pairs_.push_back({i, std::nullopt});
    }
    for (std::size_t i = 0; i < after_.groups.size(); ++i) {
      if (!is_after_paired_[i]) pairs_.push_back({std::nullopt, i});
    }
  }

  [[nodiscard]] std::vector<Pair> take() { return std::move(pairs_); }

 private:
  /** The groups without a counterpart at each place, in the order of lines. */
  static std::map<Place, std::vector<std::size_t>> places_of(const Side& side,
                                                             const std::vector<bool>& is_paired) {
    std::map<Place, std::vector<std::size_t>> places;
    for (std::size_t i = 0; i < side.groups.size(); ++i) {
      if (!is_paired[i]) places[place_of(side, i)].push_back(i);
    }
    for (auto& [place, groups] : places) {
      std::stable_sort(groups.begin(), groups.end(), [&](std::size_t one, std::size_t other) {
        return side.site(one).line < side.site(other).line;
      });
    }
    return places;
  }

  template <class Fits>
  void pair(Fits fits) {
    const auto places = places_of(after_, is_after_paired_);
    for (const auto& [place, groups] : places_of(before_, is_before_paired_)) {
      const auto found = places.find(place);
      if (found == places.end()) continue;
      auto next = found->second.begin();
      for (const std::size_t group : groups) {
        const auto other = std::find_if(next, found->second.end(), [&](std::size_t candidate) {
          return fits(before_.site(group), after_.site(candidate));
        });
        if (other == found->second.end()) continue;
        pairs_.push_back({group, *other});
        is_before_paired_[group] = true;
        is_after_paired_[*other] = true;
        next = std::next(other);
      }
    }
  }

  const Side& before_;
  const Side& after_;
  std::vector<bool> is_before_paired_;
  std::vector<bool> is_after_paired_;
  std::vector<Pair> pairs_;
};

}  // namespace

std::vector<Pair> paired(const Side& before, const Side& after) {
  return Pairs(before, after).take();
}

std::string handle_of(const Side& side, std::size_t group) {
  if (!side.groups[group].handle) return {};
  const Handle& handle = side.ledger.handles()[*side.groups[group].handle];
  return handle.tag.empty() ? std::to_string(handle.number) : handle.tag;
}

std::string name_of(const Side& before, const Side& after, const Pair& pair) {
  if (!pair.before) return after.groups[*pair.after].name;
  std::string name = before.groups[*pair.before].name;
  if (!pair.after) return name;
  const int line = after.site(*pair.after).line;
  if (after.query.by != By::kSite || before.site(*pair.before).line == line) {
    return after.groups[*pair.after].name;
  }
  return name + " -> " + std::to_string(line);
}

}  // namespace qk::command
