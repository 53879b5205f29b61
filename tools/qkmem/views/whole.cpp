// Whether an input is whole.
#include "output/words.h"
#include "views/names.h"
#include "views/views.h"

namespace qk::command {
namespace {

Sheet sheet_of_problems(const Check& check) {
  Sheet sheet;
  sheet.key = "problems";
  sheet.hides_if_empty = true;
  sheet.columns = {{"how many", "count", Unit::kCount}, {"what", "what"}, {"the first", "first"}};
  for (const Problem& problem : check.problems) {
    const std::string first = problem.details.empty() ? problem.first : problem.details;
    sheet.add(problem.count, std::string(problem.what), first);
  }
  return sheet;
}

Sheet sheet_of_sums(const Reading& reading) {
  Sheet sheet;
  sheet.key = "sums";
  sheet.hides_if_empty = true;
  sheet.title = "handles with other sums";
  sheet.columns = {{"counted", "counted", Unit::kCount},
                   {"the input says", "said", Unit::kCount},
                   {"of", "of"},
                   {"handle", "handle"}};
  for (const WrongSum& sum : reading.input.check.wrong_sums) {
    sheet.add(sum.counted, sum.said, std::string(sum.of),
              name_of(reading.ledger.handles()[sum.handle]));
  }
  return sheet;
}

std::string verdict_of(const Check& check) {
  if (!check.is_whole()) return "not whole";
  if (!check.has_sums) return "whole, as far as it goes: each release has its block";
  return "whole: each release has its block, and the sums are those that the input says";
}

/** How far a recording goes. */
std::string end_of(const Check& check) {
  switch (check.end) {
    case Check::End::kClosed:
      return "the program has ended it";
    case Check::End::kFromTail:
      return "the program was killed or still runs: all up to event " +
             count_text(check.last_event) + " is there, with the tail";
    case Check::End::kUnknown:
      break;
  }
  return "it breaks off behind event " + count_text(check.last_event) + ", without its tail";
}

/** How far a recording with a gap is complete. */
std::string gap_of(const Check& check) {
  if (check.complete_up_to == 0) return "events are missing from the beginning on";
  return "no event up to " + count_text(check.complete_up_to) + " is missing";
}

}  // namespace

Found check_input(const Query& query) {
  const Reading reading = read(query, Needs::kEvents);
  const Check& check = reading.input.check;
  Answer answer = start_answer("check", query, reading);
  answer.remarks.clear();
  answer.lines.push_back(verdict_of(check));
  if (reading.input.kind == InputKind::kRecording) answer.lines.push_back(end_of(check));
  if (check.complete_up_to != UINT64_MAX) {
    answer.lines.push_back(gap_of(check));
    answer.facts.push_back({"complete_up_to_event", check.complete_up_to});
  }
  for (const Remark& remark : check.remarks) {
    answer.facts.push_back({remark.key, remark.count});
    if (remark.count == 0) continue;
    answer.lines.push_back(counted(remark.count, remark.noun) + std::string(remark.what));
  }
  answer.sheets.push_back(sheet_of_problems(check));
  answer.sheets.push_back(sheet_of_sums(reading));
  return {answer, !check.is_whole()};
}

}  // namespace qk::command
