// What a second run has more or less than the first.
#include <algorithm>
#include <map>
#include <optional>
#include <tuple>

#include "output/words.h"
#include "views/groups.h"
#include "views/names.h"
#include "views/views.h"

namespace qk::command {
namespace {

/** A group of the first input, of the second, or of both. */
struct Pair {
  std::string name;
  std::string handle;
  Amount before;
  Amount after;
};

/** One of the inputs, and what of it has no counterpart yet. */
struct Side {
  const Query& query;
  const Ledger& ledger;
  std::vector<Group> groups;
  std::vector<bool> is_paired;

  Side(const Query& query_of_side, const Ledger& ledger_of_side)
      : query(query_of_side),
        ledger(ledger_of_side),
        groups(groups_of(query, ledger, Sort::kBytes)),
        is_paired(groups.size()) {}

  [[nodiscard]] const SiteKey& site(std::size_t group) const {
    return ledger.sites().at(groups[group].site);
  }
};

/** Handles of two runs are the same if their tags are; without tags, if their numbers are. */
std::string handle_of(const Side& side, std::size_t group) {
  if (!side.groups[group].handle) return {};
  const Handle& handle = side.ledger.handles()[*side.groups[group].handle];
  return handle.tag.empty() ? std::to_string(handle.number) : handle.tag;
}

/** What a site keeps when lines are added in front of it. */
using Place = std::tuple<std::string, std::string, std::string>;

Place place_of(const Side& side, std::size_t group) {
  const SiteKey& site = side.site(group);
  if (side.query.by != By::kSite) return {side.groups[group].name, {}, handle_of(side, group)};
  return {std::string(site.file), std::string(site.label), handle_of(side, group)};
}

/** The groups without a counterpart at each place, in the order of lines. */
std::map<Place, std::vector<std::size_t>> places_of(const Side& side) {
  std::map<Place, std::vector<std::size_t>> places;
  for (std::size_t i = 0; i < side.groups.size(); ++i) {
    if (!side.is_paired[i]) places[place_of(side, i)].push_back(i);
  }
  for (auto& [place, groups] : places) {
    std::stable_sort(groups.begin(), groups.end(), [&](std::size_t one, std::size_t other) {
      return side.site(one).line < side.site(other).line;
    });
  }
  return places;
}

class Pairs {
 public:
  Pairs(Side& before, Side& after) : before_(before), after_(after) {
    pair([](const SiteKey& one, const SiteKey& other) { return one.line == other.line; });
    // Lines that are left on both sides have moved: the first is the first, and so on.
    pair([](const SiteKey& /*one*/, const SiteKey& /*other*/) { return true; });
    for (std::size_t i = 0; i < before_.groups.size(); ++i) {
      if (!before_.is_paired[i]) add(i, std::nullopt);
    }
    for (std::size_t i = 0; i < after_.groups.size(); ++i) {
      if (!after_.is_paired[i]) add(std::nullopt, i);
    }
  }

  [[nodiscard]] std::vector<Pair> take() { return std::move(pairs_); }

 private:
  template <class Fits>
  void pair(Fits fits) {
    const auto places = places_of(after_);
    for (const auto& [place, groups] : places_of(before_)) {
      const auto found = places.find(place);
      if (found == places.end()) continue;
      auto next = found->second.begin();
      for (const std::size_t group : groups) {
        const auto other = std::find_if(next, found->second.end(), [&](std::size_t candidate) {
          return fits(before_.site(group), after_.site(candidate));
        });
        if (other == found->second.end()) continue;
        add(group, *other);
        next = std::next(other);
      }
    }
  }

  void add(std::optional<std::size_t> before, std::optional<std::size_t> after) {
    Pair pair;
    if (before) {
      before_.is_paired[*before] = true;
      pair.name = before_.groups[*before].name;
      pair.handle = handle_of(before_, *before);
      pair.before = amount_of(before_.query, before_.groups[*before].figures);
    }
    if (after) {
      after_.is_paired[*after] = true;
      const Group& group = after_.groups[*after];
      if (before && after_.query.by == By::kSite &&
          before_.site(*before).line != after_.site(*after).line) {
        pair.name += " -> " + std::to_string(after_.site(*after).line);
      } else {
        pair.name = group.name;
      }
      pair.handle = handle_of(after_, *after);
      pair.after = amount_of(after_.query, group.figures);
    }
    pairs_.push_back(std::move(pair));
  }

  Side& before_;
  Side& after_;
  std::vector<Pair> pairs_;
};

std::uint64_t distance(std::uint64_t one, std::uint64_t other) {
  return one > other ? one - other : other - one;
}

/** The largest changes first, of bytes and then of blocks. */
void sort(std::vector<Pair>& pairs) {
  std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& one, const Pair& other) {
    const auto rank = [](const Pair& pair) {
      return std::pair(distance(pair.before.bytes, pair.after.bytes),
                       distance(pair.before.blocks, pair.after.blocks));
    };
    return rank(one) > rank(other);
  });
}

Sheet sheet_of(const Query& query, const std::vector<Pair>& pairs) {
  Sheet sheet;
  sheet.key = "rows";
  sheet.columns = {{"bytes", "bytes_change", Unit::kBytes},
                   {"blocks", "blocks_change", Unit::kCount},
                   {"before", "bytes_before", Unit::kBytes},
                   {"after", "bytes_after", Unit::kBytes},
                   {"handle", "handle"},
                   {query.by == By::kSite ? "site" : "name", "name"}};
  for (const Pair& pair : pairs) {
    if (pair.before == pair.after) continue;
    if (query.rows != 0 && sheet.rows.size() == query.rows) {
      ++sheet.left_out;
      continue;
    }
    sheet.add(Change{pair.before.bytes, pair.after.bytes},
              Change{pair.before.blocks, pair.after.blocks}, pair.before.bytes, pair.after.bytes,
              pair.handle, pair.name);
  }
  return sheet;
}

}  // namespace

Found show_difference(const Query& query) {
  Query later = query;
  later.input = query.other;
  const Reading before = read(query);
  const Reading after = read(later);
  Side first(query, before.ledger);
  Side second(later, after.ledger);
  std::vector<Pair> pairs = Pairs(first, second).take();
  sort(pairs);
  const Amount was = amount_of(query, before.ledger.whole());
  const Amount is = amount_of(query, after.ledger.whole());
  Answer answer = start_answer("diff", query, before);
  answer.facts.clear();
  answer.facts = {{"before", query.input},       {"after", query.other},
                  {"bytes_before", was.bytes},   {"bytes_after", is.bytes},
                  {"blocks_before", was.blocks}, {"blocks_after", is.blocks}};
  answer.lines.push_back(heading_of(shown_name(query.other), after.ledger));
  answer.lines.push_back(fmt::format("{} -> {}", amount_text(was), amount_text(is)));
  answer.sheets.push_back(sheet_of(query, pairs));
  return {answer, is.bytes > was.bytes};
}

}  // namespace qk::command
