#include "page/page_data.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <new>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "formats/json.h"
#include "page/packing.h"
#include "support/page_buffer.h"
#include "views/calls.h"
#include "views/names.h"
#include "views/pairs.h"

namespace qk::command {
namespace {

using mem::JsonWriter;

/** Things that rows share, each once, by numbers in the order in which they are first wanted. */
template <class Key>
class Numbered {
 public:
  std::uint64_t number_of(const Key& key) {
    const auto [found, is_new] = numbers_.try_emplace(key, keys_.size());
    if (is_new) keys_.push_back(&found->first);
    return found->second;
  }
  [[nodiscard]] const std::vector<const Key*>& keys() const { return keys_; }

 private:
  std::map<Key, std::uint64_t> numbers_;
  std::vector<const Key*> keys_;
};

using HandleKey = std::pair<int, std::string>;
using FrameKey = std::tuple<std::string, std::string, int>;

/** A line of the program, which two runs can share. */
struct Line {
  std::string name;
  std::string path;
};

/** The lines of one run or two, and which of them a site is. */
class Lines {
 public:
  explicit Lines(std::span<const PageRun> runs) : of_site_(runs.size()) {
    std::vector<std::vector<Group>> groups;
    std::vector<Query> queries;
    for (const PageRun& run : runs) {
      queries.push_back(run.query);
      queries.back().by = By::kSite;
      groups.push_back(groups_of(queries.back(), run.reading.ledger, Sort::kPeak));
    }
    const Side first = {queries.front(), runs.front().reading.ledger, groups.front()};
    const Side last = {queries.back(), runs.back().reading.ledger, groups.back()};
    if (runs.size() == 1) {
      for (std::size_t i = 0; i < groups[0].size(); ++i) add(first, first, {i, std::nullopt});
    } else {
      for (const Pair& pair : paired(first, last)) add(first, last, pair);
    }
  }

  [[nodiscard]] const Line& at(std::uint64_t number) const { return lines_[number]; }
  [[nodiscard]] std::uint64_t of_site(std::size_t run, SiteIndex site) const {
    return of_site_[run].at(site);
  }

 private:
  void add(const Side& before, const Side& after, const Pair& pair) {
    const Side& named = pair.after ? after : before;
    const std::size_t group = pair.after ? *pair.after : *pair.before;
    if (pair.before) note_sites(0, before.groups[*pair.before]);
    if (pair.after) note_sites(1, after.groups[*pair.after]);
    lines_.push_back({name_of(before, after, pair), std::string(named.site(group).file)});
  }

  void note_sites(std::size_t run, const Group& group) {
    for (const SiteIndex site : group.sites) of_site_[run][site] = lines_.size();
  }

  std::vector<Line> lines_;
  std::vector<std::unordered_map<SiteIndex, std::uint64_t>> of_site_;
};

/** What the rows of all runs refer to. */
struct Names {
  Lines lines;
  Numbered<std::uint64_t> shown_lines;
  Numbered<HandleKey> handles;
  Numbered<FrameKey> frames;
};

void put_amount(JsonWriter& json, std::string_view key, const Amount& amount) {
  json.key(key).begin_array().number(amount.bytes).number(amount.blocks).end_array();
}

void put_figures(JsonWriter& json, const Figures& figures) {
  put_amount(json, "live", figures.live);
  put_amount(json, "left", figures.left());
  put_amount(json, "made", figures.made);
  put_amount(json, "at_peak", figures.at_peak);
  put_amount(json, "own_peak", figures.highest);
  json.key("released").number(figures.released).key("short").number(figures.released_soon);
  json.key("lives").number(figures.lives).key("longest").number(figures.longest_life);
  json.key("largest").number(figures.largest);
  json.key("first_event").number(figures.first_event);
  json.key("last_event").number(figures.last_event);
}

/** The handle that all of a row's sites are on; none if there are several. */
std::optional<HandleKey> handle_of(const Ledger& ledger, const PageRow& row) {
  std::optional<HandleKey> common;
  for (const SiteIndex site : row.sites) {
    const Handle& handle = ledger.handles()[ledger.sites().at(site).handle];
    const HandleKey key = {handle.number, handle.tag};
    if (common && *common != key) return std::nullopt;
    common = key;
  }
  return common;
}

void put_row(JsonWriter& json, const PageRun& run, std::size_t number, const PageRow& row,
             Names& names) {
  const Ledger& ledger = run.reading.ledger;
  json.start_line().begin_object();
  if (const auto handle = handle_of(ledger, row)) {
    json.key("handle").number(names.handles.number_of(*handle));
  }
  if (row.is_rest) {
    json.key("rest").number(row.groups);
  } else {
    const SiteIndex site = row.sites.front();
    json.key("line").number(names.shown_lines.number_of(names.lines.of_site(number, site)));
    json.key("stack").begin_array();
    for (const Frame& frame : calls_to(ledger, ledger.sites().at(site))) {
      json.number(names.frames.number_of({frame.function, frame.file, frame.line}));
    }
    json.end_array();
  }
  put_figures(json, row.figures);
  json.end_object();
}

void put_moments(JsonWriter& json, const PageRun& run) {
  const PicturePlan& plan = run.picture->plan();
  json.start_line().key("begin").number(plan.begin).key("end").number(plan.end);
  json.key("buckets").number(plan.buckets).key("peak_moment").number(run.peak);
  json.key("moments").begin_array();
  for (const std::uint64_t moment : plan.moments) json.number(moment);
  json.end_array();
}

/** Many could not be told apart in a picture; the last ones are those that matter. */
void put_snapshots(JsonWriter& json, const Ledger& ledger) {
  constexpr std::size_t kMost = 100;
  const std::vector<NamedMoment>& all = ledger.program().snapshots;
  json.start_line().key("snapshots").begin_array();
  for (std::size_t i = all.size() - std::min(all.size(), kMost); i < all.size(); ++i) {
    json.begin_object().key("time").number(ledger.on_clock(all[i].when));
    json.key("name").text(all[i].name).end_object();
  }
  json.end_array();
}

void put_run(JsonWriter& json, const PageRun& run, std::size_t number, Names& names) {
  const Ledger& ledger = run.reading.ledger;
  json.start_line().begin_object().key("name").text(shown_name(run.query.input));
  json.key("command").text(ledger.program().command);
  json.key("process").number(ledger.program().process);
  json.key("started").number(ledger.program().started);
  json.key("clock").text(ledger.clock() == Clock::kNanoseconds ? "nanoseconds" : "events");
  json.key("events").number(ledger.events());
  json.key("last_event").number(ledger.last().event);
  json.key("last").number(ledger.on_clock(ledger.last()));
  json.key("peak").number(ledger.on_clock(ledger.peak_moment()));
  json.key("peak_event").number(ledger.peak_moment().event);
  json.key("groups").number(run.rows.groups).key("shown").number(run.rows.shown);
  put_amount(json, "at_peak", ledger.whole().at_peak);
  put_snapshots(json, ledger);
  if (run.picture) put_moments(json, run);
  json.start_line().key("rows").begin_array();
  for (const PageRow& row : run.rows.rows) put_row(json, run, number, row, names);
  json.end_array().end_object();
}

void put_names(JsonWriter& json, const Names& names) {
  json.start_line().key("lines").begin_array();
  for (const std::uint64_t* number : names.shown_lines.keys()) {
    const Line& line = names.lines.at(*number);
    json.begin_object().key("name").text(line.name).key("path").text(line.path).end_object();
  }
  json.end_array().start_line().key("handles").begin_array();
  for (const HandleKey* handle : names.handles.keys()) {
    json.begin_object().key("number").signed_number(handle->first);
    json.key("tag").text(handle->second).end_object();
  }
  json.end_array().start_line().key("frames").begin_array();
  for (const FrameKey* key : names.frames.keys()) {
    const auto& [function, file, line] = *key;
    const Frame frame = {function, file, line};
    json.begin_object().key("name").text(name_of(frame));
    if (name_of(frame) != function) json.key("function").text(function);
    if (!file.empty()) json.key("place").text(fmt::format("{}:{}", file, line));
    json.end_object();
  }
  json.end_array();
}

std::uint64_t steps_of(std::uint64_t bytes, std::uint64_t whole, std::uint64_t steps) {
  if (whole == 0) return 0;
  const double part = static_cast<double>(bytes) / static_cast<double>(whole);
  return static_cast<std::uint64_t>(std::llround(part * static_cast<double>(steps)));
}

/** A row for each row of the picture, with a number for each bucket. */
template <class NumberOf>
void put_buckets(Packing& packing, const PicturePlan& plan, NumberOf number_of) {
  for (std::size_t row = 0; row < plan.rows; ++row) {
    std::uint64_t before = 0;
    for (std::size_t bucket = 0; bucket < plan.buckets; ++bucket) {
      const std::uint64_t now = number_of(row, bucket);
      packing.put_change(std::exchange(before, now), now);
    }
  }
}

void put_exact(Packing& packing, const Picture& picture) {
  const PicturePlan& plan = picture.plan();
  for (std::size_t row = 0; row < plan.rows; ++row) {
    for (const auto& [amount, figure] : {std::pair{&RowFigures::live, &Amount::bytes},
                                         {&RowFigures::live, &Amount::blocks},
                                         {&RowFigures::made, &Amount::bytes},
                                         {&RowFigures::made, &Amount::blocks}}) {
      std::uint64_t before = 0;
      for (std::size_t moment = 0; moment < plan.moments.size(); ++moment) {
        const std::uint64_t now = picture.figures(row, moment).*amount.*figure;
        packing.put_change(std::exchange(before, now), now);
      }
    }
  }
}

}  // namespace

std::string facts_of(std::span<const PageRun> runs) {
  Names names = {Lines(runs), {}, {}, {}};
  qk::PageBuffer text;
  JsonWriter json(text);
  json.begin_object().key("runs").begin_array();
  for (std::size_t i = 0; i < runs.size(); ++i) put_run(json, runs[i], i, names);
  json.end_array();
  put_names(json, names);
  json.end_object();
  if (!json.is_complete()) throw std::bad_alloc();
  return std::string(text.text());
}

std::string packed_levels_of(const PageRun& run) {
  if (!run.picture) return {};
  const Picture& picture = *run.picture;
  const std::uint64_t peak = run.reading.ledger.peak();
  std::string text;
  // As fine as there is room for: small rows are lost in coarse steps.
  constexpr std::size_t kRoom = 330'000;  // bytes on the page
  for (const std::uint64_t steps : {16'000U, 4'000U, 1'000U}) {
    const auto level = [&](std::size_t row, std::size_t bucket) {
      return steps_of(picture.level(row, bucket), peak, steps);
    };
    const auto more = [&](std::size_t row, std::size_t bucket) {
      return steps_of(picture.most(row, bucket), peak, steps) - level(row, bucket);
    };
    Packing packing;
    packing.put(steps);
    put_buckets(packing, picture.plan(), level);
    put_exact(packing, picture);
    put_buckets(packing, picture.plan(), more);
    text = packed(packing.bytes());
    if (text.size() <= kRoom) break;
  }
  return text;
}

}  // namespace qk::command
