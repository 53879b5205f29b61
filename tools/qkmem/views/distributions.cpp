// Commands that show how a figure is spread: over sizes, and over the events.
#include "output/words.h"
#include "views/levels.h"
#include "views/names.h"
#include "views/sheets.h"
#include "views/views.h"

namespace qk::command {

Found show_sizes(const Query& query) {
  const Reading reading = read(query, Needs::kEvents);
  Answer answer = start_answer("sizes", query, reading);
  const Amount& made = reading.ledger.whole().made;
  answer.lines.push_back(amount_text(made) + " made");
  Sheet sizes;
  sizes.key = "rows";
  sizes.columns = {{"at least", "least_bytes", Unit::kBytes},
                   {"blocks", "made_blocks", Unit::kCount},
                   {"share", "share_of_blocks", Unit::kShare},
                   {"bytes made", "made_bytes", Unit::kBytes},
                   {"share", "share_of_bytes", Unit::kShare}};
  const auto& classes = reading.ledger.sizes().classes();
  for (std::size_t i = 0; i < classes.size(); ++i) {
    if (classes[i].count == 0) continue;
    sizes.add(Histogram::least_of(i), classes[i].count, Share{classes[i].count, made.blocks},
              classes[i].weight, Share{classes[i].weight, made.bytes});
  }
  answer.sheets.push_back(std::move(sizes));
  return {answer, false};
}

Found show_timeline(const Query& query) {
  const Reading reading = read(query, Needs::kEvents);
  const Ledger& ledger = reading.ledger;
  Answer answer = start_answer("timeline", query, reading);
  answer.lines.push_back("peak " + peak_text(ledger));
  answer.lines.push_back("  " + bars_of(query, ledger.timeline(), 4));
  Sheet levels;
  levels.key = "rows";
  levels.columns = {life_column(ledger, "from", "event", "nanoseconds"),
                    {"lowest", "lowest_bytes", Unit::kBytes},
                    {"highest", "highest_bytes", Unit::kBytes}};
  for (const Level& level : levels_of(ledger.timeline(), query.rows)) {
    levels.add(level.from, level.lowest, level.highest);
  }
  answer.sheets.push_back(std::move(levels));
  return {answer, false};
}

}  // namespace qk::command
