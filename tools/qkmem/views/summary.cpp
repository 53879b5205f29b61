// One screen that says what to look at.
#include "output/words.h"
#include "views/groups.h"
#include "views/levels.h"
#include "views/names.h"
#include "views/sheets.h"
#include "views/views.h"

namespace qk::command {
namespace {

/** The site that has most of something, or how many share it: "; net.c:12 has 81% of it". */
std::string most_text(const Query& query, const Ledger& ledger, Sort sort, AmountOf amount,
                      std::uint64_t (*of)(const Figures&)) {
  constexpr std::uint64_t kMuch = 10;  // times this is all
  std::vector<Group> groups = groups_of(query, ledger, sort, amount);
  std::erase_if(groups, [of](const Group& group) { return of(group.figures) == 0; });
  if (groups.empty()) return {};
  const std::uint64_t part = of(groups.front().figures);
  const std::uint64_t whole = of(ledger.whole());
  if (part * kMuch < whole) return fmt::format("; {} share it", counted(groups.size(), "site"));
  return fmt::format("; {} has {} of it", groups.front().name,
                     mem::percent_figure(part, whole).text());
}

/** What a stranger should know first. */
std::string verdict_of(const Query& query, const Ledger& ledger) {
  const Figures& whole = ledger.whole();
  const Amount left = whole.left();
  if (left.blocks != 0 && !query.at_moment) {
    return fmt::format("{} {} never released{}", amount_text(left),
                       left.blocks == 1 ? "was" : "were",
                       most_text(query, ledger, Sort::kBytes, &left_of,
                                 [](const Figures& figures) { return figures.left().bytes; }));
  }
  if (whole.released_soon * 2 > whole.made.blocks) {
    return fmt::format("nothing is left, but {} of all blocks are released within {} events{}",
                       mem::percent_figure(whole.released_soon, whole.made.blocks).text(), kSoon,
                       most_text(query, ledger, Sort::kShort, &amount_of,
                                 [](const Figures& figures) { return figures.released_soon; }));
  }
  if (left.blocks == 0) return "nothing is left: each block was released";
  return amount_text(left) + " are live at " + moment_text(ledger, ledger.last());
}

/** Few rows, and no word of what is left out. */
Sheet excerpt(Sheet sheet, std::string_view key, std::string title) {
  sheet.key = key;
  sheet.title = std::move(title);
  sheet.left_out = 0;
  return sheet;
}

}  // namespace

Found summarize(const Query& query) { return summary_of(query, read(query)); }

Found summary_of(const Query& query, const Reading& reading) {
  const Ledger& ledger = reading.ledger;
  const Figures& whole = ledger.whole();
  Answer answer = start_answer("summary", query, reading);
  const std::string verdict = verdict_of(query, ledger);
  answer.lines.push_back(verdict);
  answer.lines.emplace_back();
  answer.lines.push_back("peak    " + peak_text(ledger));
  answer.lines.push_back(fmt::format(
      "churn   {} made; {} of the blocks lived for {} events at most", amount_text(whole.made),
      mem::percent_figure(whole.released_soon, whole.made.blocks).text(), kSoon));
  if (ledger.has_events())
    answer.lines.push_back("level   " + bars_of(query, ledger.timeline(), 8));
  answer.facts.push_back({"verdict", verdict});
  Query few = query;
  few.rows = 5;
  answer.sheets.push_back(excerpt(sheet_of_leaks(few, ledger), "left", "what is left"));
  answer.sheets.push_back(excerpt(sheet_of_peak(few, ledger), "peak", "what held the peak"));
  answer.sheets.push_back(excerpt(sheet_of_churn(few, ledger), "churn", "what churns"));
  return {answer, whole.left().blocks != 0};
}

}  // namespace qk::command
