// Commands that list who has most.
#include "output/words.h"
#include "views/groups.h"
#include "views/names.h"
#include "views/sheets.h"
#include "views/views.h"

namespace qk::command {
Found show_top(const Query& query) {
  const Reading reading = read(query);
  Answer answer = start_answer("top", query, reading);
  answer.lines.push_back(fmt::format("{} live {}; peak {}",
                                     amount_text(amount_of(query, reading.ledger.whole())),
                                     when_text(query, reading.ledger), peak_text(reading.ledger)));
  answer.sheets.push_back(sheet_of_top(query, reading.ledger));
  return {answer, false};
}

Found show_leaks(const Query& query) {
  const Reading reading = read(query);
  const Amount left = reading.ledger.whole().left();
  Answer answer = start_answer("leaks", query, reading);
  answer.lines.push_back(left.blocks == 0 ? "nothing is left: each block was released"
                                          : fmt::format("{} {} never released", amount_text(left),
                                                        left.blocks == 1 ? "was" : "were"));
  answer.sheets.push_back(sheet_of_leaks(query, reading.ledger));
  return {answer, left.blocks != 0};
}

Found show_peak(const Query& query) {
  const Reading reading = read(query);
  Answer answer = start_answer("peak", query, reading);
  answer.lines.push_back("peak " + peak_text(reading.ledger));
  answer.sheets.push_back(sheet_of_peak(query, reading.ledger));
  return {answer, false};
}

Found show_churn(const Query& query) {
  const Reading reading = read(query);
  const Figures& whole = reading.ledger.whole();
  Answer answer = start_answer("churn", query, reading);
  answer.lines.push_back(fmt::format(
      "{} made; {} of {} blocks were released within {} events", amount_text(whole.made),
      mem::percent_figure(whole.released_soon, whole.made.blocks).text(),
      count_text(whole.made.blocks), kSoon));
  answer.sheets.push_back(sheet_of_churn(query, reading.ledger));
  return {answer, false};
}

Found show_lives(const Query& query) {
  const Reading reading = read(query, Needs::kEvents);
  const Ledger& ledger = reading.ledger;
  Answer answer = start_answer("lives", query, reading);
  const std::uint64_t released = ledger.whole().released;
  answer.lines.push_back(fmt::format(
      "{} of {} blocks released{}", count_text(released), count_text(ledger.whole().made.blocks),
      ledger.clock() == Clock::kEvents ? "; lives are in events" : ""));
  Sheet lives;
  lives.key = "lives";
  lives.columns = {life_column(ledger, "at least", "least_life_events", "least_life_nanoseconds"),
                   {"blocks", "blocks", Unit::kCount},
                   {"share", "share_of_blocks", Unit::kShare},
                   {"bytes", "bytes", Unit::kBytes}};
  const auto& classes = ledger.lives().classes();
  for (std::size_t i = 0; i < classes.size(); ++i) {
    if (classes[i].count == 0) continue;
    lives.add(Histogram::least_of(i), classes[i].count, Share{classes[i].count, released},
              classes[i].weight);
  }
  answer.sheets.push_back(std::move(lives));
  answer.sheets.push_back(sheet_of_lives(query, ledger));
  return {answer, false};
}

}  // namespace qk::command
