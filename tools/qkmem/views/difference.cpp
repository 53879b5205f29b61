// What a second run has more or less than the first.
#include <algorithm>
#include <utility>

#include "output/words.h"
#include "views/groups.h"
#include "views/names.h"
#include "views/pairs.h"
#include "views/views.h"

namespace qk::command {
namespace {

/** What a pair holds in each run. */
struct Holding {
  std::string name;
  std::string handle;
  Amount before;
  Amount after;
};

Holding holding_of(const Side& before, const Side& after, const Pair& pair) {
  Holding holding;
  holding.name = name_of(before, after, pair);
  if (pair.before) {
    holding.handle = handle_of(before, *pair.before);
    holding.before = amount_of(before.query, before.groups[*pair.before].figures);
  }
  if (pair.after) {
    holding.handle = handle_of(after, *pair.after);
    holding.after = amount_of(after.query, after.groups[*pair.after].figures);
  }
  return holding;
}

std::uint64_t distance(std::uint64_t one, std::uint64_t other) {
  return one > other ? one - other : other - one;
}

/** The largest changes first, of bytes and then of blocks. */
void sort(std::vector<Holding>& holdings) {
  std::stable_sort(holdings.begin(), holdings.end(), [](const Holding& one, const Holding& other) {
    const auto rank = [](const Holding& holding) {
      return std::pair(distance(holding.before.bytes, holding.after.bytes),
                       distance(holding.before.blocks, holding.after.blocks));
    };
    return rank(one) > rank(other);
  });
}

Sheet sheet_of(const Query& query, const std::vector<Holding>& holdings) {
  Sheet sheet;
  sheet.key = "rows";
  sheet.columns = {{"bytes", "bytes_change", Unit::kBytes},
                   {"blocks", "blocks_change", Unit::kCount},
                   {"before", "bytes_before", Unit::kBytes},
                   {"after", "bytes_after", Unit::kBytes},
                   {"handle", "handle"},
                   {query.by == By::kSite ? "site" : "name", "name"}};
  for (const Holding& holding : holdings) {
    if (holding.before == holding.after) continue;
    if (query.rows != 0 && sheet.rows.size() == query.rows) {
      ++sheet.left_out;
      continue;
    }
    sheet.add(Change{holding.before.bytes, holding.after.bytes},
              Change{holding.before.blocks, holding.after.blocks}, holding.before.bytes,
              holding.after.bytes, holding.handle, holding.name);
  }
  return sheet;
}

}  // namespace

Found show_difference(const Query& query) {
  Query later = query;
  later.input = query.other;
  const Reading before = read(query);
  const Reading after = read(later);
  return difference_of(query, before, after);
}

Found difference_of(const Query& query, const Reading& before, const Reading& after) {
  const auto groups_before = groups_of(query, before.ledger, Sort::kBytes);
  const auto groups_after = groups_of(query, after.ledger, Sort::kBytes);
  const Side first = {query, before.ledger, groups_before};
  const Side second = {query, after.ledger, groups_after};
  std::vector<Holding> holdings;
  for (const Pair& pair : paired(first, second)) {
    holdings.push_back(holding_of(first, second, pair));
  }
  sort(holdings);
  const Amount was = amount_of(query, before.ledger.whole());
  const Amount is = amount_of(query, after.ledger.whole());
  Answer answer = start_answer("diff", query, before);
  answer.facts.clear();
  answer.facts = {{"before", query.input},       {"after", query.other},
                  {"bytes_before", was.bytes},   {"bytes_after", is.bytes},
                  {"blocks_before", was.blocks}, {"blocks_after", is.blocks}};
  answer.lines.push_back(heading_of(shown_name(query.other), after.ledger));
  answer.lines.push_back(fmt::format("{} -> {}", amount_text(was), amount_text(is)));
  answer.sheets.push_back(sheet_of(query, holdings));
  return {answer, is.bytes > was.bytes};
}

}  // namespace qk::command
