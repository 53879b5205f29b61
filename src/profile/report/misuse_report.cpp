#include "profile/report/misuse_report.h"

#include <algorithm>

#include "formats/figures.h"
#include "profile/events.h"
#include "profile/misuses.h"
#include "profile/report/place.h"
#include "profile/report/table.h"
#include "profile/report/text_parts.h"
#include "support/line.h"
#include "support/text.h"

namespace qk::mem::profile {
namespace {

template <class Visit>
void for_each_misuse(Visit visit) {
  const std::uint32_t count = misuses.count();
  for (std::uint32_t number = 1; number <= count; ++number) visit(misuses.at(number));
}

Figure times_figure(const Misuse& misuse) { return count_figure(qk::load(misuse.times)); }

bool has_damage() {
  bool has = false;
  for_each_misuse([&has](const Misuse& misuse) { has = has || misuse.place.damage != 0; });
  return has;
}

void put_title(qk::PageWriter& out) {
  qk::Line line;
  line.put(has_damage() ? "qkmem: misuse and damage" : "qkmem: misuse");
  if (const std::uint64_t frees = qk::load(null_frees); frees != 0) {
    line.put(", beside ").put(count_figure(frees).text()).put(" free").put(plural(frees));
    line.put(" of null");
  }
  out.put(line.put('\n').finish());
}

void put_rest(qk::PageWriter& out) {
  const std::uint64_t others = qk::load(other_misuses);
  if (others == 0) return;
  qk::Line line;
  line.put("  and ").put(count_figure(others).text()).put(" more at other places\n");
  out.put(line.finish());
}

/** Who has allocated a damaged block, if its stack is known. */
void put_callers_of(qk::PageWriter& out, const Misuse& misuse, std::size_t indent,
                    const Style& style, Naming naming, const char* skip) {
  if (misuse.site == kNoSite || misuse.site > kMaxSites) return;
  const Site& site = sites.at(misuse.site);
  if (site.key.stack == 0) return;
  Rows rows(1);
  if (!rows.push_back(row_of(site, events_so_far()))) return;
  ShownFrames frames(frames_needed(rows));
  if (frames.capacity() == 0) return;
  name_callers(rows, frames, naming, skip);
  constexpr std::size_t kWidth = 200;
  qk::Line line;
  line.put("", indent).put("allocated by ");
  put_place(line, rows[0], frames, style, kWidth);
  out.put(line.put('\n').finish());
}

template <class PutMore>
void put_table(qk::PageWriter& out, const Style& style, PutMore put_more) {
  if (misuses.count() == 0) return;
  constexpr std::string_view kTimes = "times";
  std::size_t width = kTimes.size();
  for_each_misuse(
      [&](const Misuse& misuse) { width = std::max(width, times_figure(misuse).text().size()); });
  qk::Line heading;
  put_right_aligned(heading.put(style.aside), kTimes, width + 2);
  out.put(heading.put("  what").put(style.end).put('\n').finish());
  for_each_misuse([&](const Misuse& misuse) {
    qk::Line line;
    put_right_aligned(line, times_figure(misuse).text(), width + 2);
    out.put(line.put("  ").put(misuse.words()).put('\n').finish());
    put_more(misuse, width + 4);
  });
  put_rest(out);
}

}  // namespace

void put_event(qk::Line& line, std::uint64_t event) {
  line.put(" (event ").put(count_figure(event).text()).put(')');
}

void put_first_misuse(qk::PageWriter& out, const Style& style) {
  if (misuses.count() == 0) return;
  const Misuse& first = misuses.at(1);
  qk::Line line;
  put_heading(line.put(style.verdict));
  line.put("first misuse: ").put(first.words().substr(0, first.summary));
  put_event(line, first.event);
  out.put(line.put(style.end).put('\n').finish());
}

void put_findings(qk::PageWriter& out, std::uint64_t events) {
  const std::uint32_t count = misuses.count();
  qk::Line line;
  put_heading(line);
  if (count == 0) {
    line.put("no misuse and no damage");
  } else {
    line.put(count_figure(count).text()).put(" finding").put(plural(count));
  }
  line.put(" in ").put(count_figure(events).text()).put(" event").put(plural(events)).put('\n');
  out.put(line.finish());
  put_table(out, kPlainStyle, [](const Misuse& /*misuse*/, std::size_t /*indent*/) {});
}

void put_misuses(qk::PageWriter& out, const Style& style, Naming naming, const char* skip) {
  if (misuses.count() == 0) return;
  put_title(out);
  put_table(out, style, [&](const Misuse& misuse, std::size_t indent) {
    put_callers_of(out, misuse, indent, style, naming, skip);
  });
}

void put_json_misuses(JsonWriter& json) {
  json.key("null_frees").number(qk::load(null_frees));
  json.key("other_misuses").number(qk::load(other_misuses));
  json.start_line().key("misuses").begin_array();
  for_each_misuse([&](const Misuse& misuse) {
    json.start_line().begin_object();
    json.key("text").text(misuse.words());
    const char* const path = misuse.place.path;
    json.key("file").text(path == nullptr ? "" : qk::file_name_only(path));
    json.key("line").number(static_cast<std::uint64_t>(misuse.place.line));
    json.key("handle").number(static_cast<std::uint64_t>(misuse.place.hid));
    json.key("event").number(misuse.event);
    json.key("times").number(qk::load(misuse.times));
    json.end_object();
  });
  json.end_array();
}

}  // namespace qk::mem::profile
