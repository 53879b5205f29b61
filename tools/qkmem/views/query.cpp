#include "views/query.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "names/stacks.h"
#include "output/progress.h"
#include "output/words.h"
#include "views/names.h"

namespace qk::command {
namespace {

bool matches_any(const std::vector<std::string>& patterns, const std::string& text) {
  return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
  });
}

template <class Item>
bool is_among(const std::vector<Item>& items, const Item& item) {
  return items.empty() || std::find(items.begin(), items.end(), item) != items.end();
}

/** A pattern with a folder is for whole paths; any other one is for names of files. */
bool matches_file(const std::vector<std::string>& patterns, std::string_view path) {
  return patterns.empty() || matches_any(patterns, std::string(base_of(path))) ||
         matches_any(patterns, std::string(path));
}

bool matches_site(const std::vector<std::string>& patterns, const SiteKey& site) {
  return patterns.empty() || matches_any(patterns, name_of(site)) ||
         matches_any(patterns, fmt::format("{}:{}", base_of(site.file), site.line)) ||
         matches_any(patterns, fmt::format("{}:{}", site.file, site.line));
}

Selection selection_of(const Query& query) {
  Selection selection = {nullptr, query.from, query.to};
  if (query.handles.empty() && query.files.empty() && query.sites.empty() && query.tags.empty() &&
      query.threads.empty()) {
    return selection;
  }
  selection.of_site = [&query](const Handle& handle, const SiteKey& site) {
    return is_among(query.handles, handle.number) && is_among(query.tags, handle.tag) &&
           is_among(query.threads, site.thread) && matches_file(query.files, site.file) &&
           matches_site(query.sites, site);
  };
  return selection;
}

bool asks_for_time(const Query& query) {
  return query.from.nanoseconds != 0 || query.to.nanoseconds != UINT64_MAX ||
         (query.at_moment && query.at_moment->nanoseconds != UINT64_MAX);
}

void refuse(std::string_view input, std::string_view what) {
  throw UsageError(fmt::format("{} has no {}; a recording has", input, what));
}

void ask_table(const Query& query) {
  constexpr std::string_view kInput = "a trace file";
  if (!query.tags.empty() || query.by == By::kTag) refuse(kInput, "tags");
  if (!query.threads.empty() || query.by == By::kThread) refuse(kInput, "threads");
  if (query.by == By::kStack) refuse(kInput, "stacks");
  if (query.by == By::kFunction) refuse(kInput, "functions");
  if (asks_for_time(query)) refuse(kInput, "times");
}

void ask_profile(const Query& query, Needs needs) {
  constexpr std::string_view kInput = "a profile's report";
  const bool asks_for_events =
      query.at_moment || query.from.event != 0 || query.to.event != UINT64_MAX;
  if (needs == Needs::kEvents || asks_for_events || asks_for_time(query)) refuse(kInput, "events");
  if (!query.threads.empty() || query.by == By::kThread) refuse(kInput, "threads");
  if (query.at == At::kPeak) refuse(kInput, "blocks at the peak");
}

/** Asks nothing that the input can't tell. */
void see_that_it_is_there(const Query& query, InputKind kind, Needs needs) {
  switch (kind) {
    case InputKind::kRecording:
      break;
    case InputKind::kTable:
      return ask_table(query);
    case InputKind::kProfile:
      return ask_profile(query, needs);
  }
}

std::vector<Fact> facts_of(const Query& query, const Reading& reading) {
  const Ledger& ledger = reading.ledger;
  const Figures& whole = ledger.whole();
  std::vector<Fact> facts = {{"input", query.input},
                             {"events", ledger.events()},
                             {"first_event", ledger.first().event},
                             {"last_event", ledger.last().event},
                             {"live_bytes", whole.live.bytes},
                             {"live_blocks", whole.live.blocks},
                             {"peak_bytes", whole.at_peak.bytes}};
  if (ledger.has_events()) facts.push_back({"peak_blocks", whole.at_peak.blocks});
  facts.push_back({"peak_event", ledger.peak_moment().event});
  facts.push_back({"made_bytes", whole.made.bytes});
  facts.push_back({"made_blocks", whole.made.blocks});
  facts.push_back({"is_whole", reading.input.check.is_whole()});
  if (ledger.clock() == Clock::kNanoseconds) {
    facts.push_back({"nanoseconds", ledger.last().nanoseconds});
    facts.push_back({"peak_nanoseconds", ledger.peak_moment().nanoseconds});
  }
  if (whole.before.blocks != 0) {
    facts.push_back({"unsure_bytes", whole.before.bytes});
    facts.push_back({"unsure_blocks", whole.before.blocks});
  }
  return facts;
}

std::vector<std::string> remarks_of(const Reading& reading) {
  const Check& check = reading.input.check;
  std::vector<std::string> remarks = reading.remarks;
  if (!check.is_whole()) remarks.emplace_back("the input is not whole: see qkmem check");
  if (const Amount& before = reading.ledger.whole().before; before.blocks != 0) {
    const bool is_recording = reading.input.kind == InputKind::kRecording;
    remarks.push_back(fmt::format("{} of what is live: made before the {}", amount_text(before),
                                  is_recording ? "recording begins" : "profile was on"));
  }
  return remarks;
}

}  // namespace

Reading::Reading(const Query& query) : ledger(selection_of(query)), input() {}

namespace {

void read_as_needed(const Query& query, Needs needs, std::function<void(const Happening&)> watch,
                    Reading& reading) {
  Progress progress;
  const bool splits_threads = query.by == By::kThread || !query.threads.empty();
  Reader reader = {reading.ledger,
                   {UINT64_MAX, UINT64_MAX},
                   splits_threads,
                   [&query, needs](InputKind kind) { see_that_it_is_there(query, kind, needs); },
                   std::move(watch),
                   [&progress](std::uint64_t read, std::uint64_t all) { progress.show(read, all); }};
  if (query.at_moment) reader.last = *query.at_moment;
  reading.input = read_input(query.input, reader);
  reading.ledger.finish();
  reading.remarks = reading.input.remarks;
  if (reading.ledger.events() == 0) {
    throw InputError("there are no events in " + shown_name(query.input));
  }
  if (query.by == By::kFunction || query.by == By::kStack) {
    if (reading.ledger.program().stacks.empty()) {
      throw UsageError("there are no stacks: STACKS in QK_MEM_PROFILE takes them along");
    }
    name_calls(reading);
  }
}

}  // namespace

Reading read(const Query& query, Needs needs) {
  Reading reading(query);
  read_as_needed(query, needs, {}, reading);
  return reading;
}

void read(const Query& query, Reading& reading, std::function<void(const Happening&)> watch) {
  read_as_needed(query, Needs::kEvents, std::move(watch), reading);
}

void name_calls(Reading& reading) {
  std::vector<std::string> remarks = name_stacks(reading.ledger.program());
  std::move(remarks.begin(), remarks.end(), std::back_inserter(reading.remarks));
}

std::string when_text(const Query& query, const Ledger& ledger) {
  if (query.at == At::kPeak) return "at the peak";
  if (query.at == At::kEver) return "at any time";
  if (query.at_moment) return "at " + moment_text(ledger, ledger.last());
  return "at the end";
}

std::string shown_name(const std::string& input) { return input == "-" ? "standard input" : input; }

Answer start_answer(std::string_view command, const Query& query, const Reading& reading) {
  Answer answer;
  answer.command = command;
  answer.lines.push_back(heading_of(shown_name(query.input), reading.ledger));
  answer.facts = facts_of(query, reading);
  answer.remarks = remarks_of(reading);
  return answer;
}

}  // namespace qk::command
