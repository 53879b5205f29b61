#include "profile/report/json_report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "formats/json.h"
#include "profile/copies.h"
#include "profile/events.h"
#include "profile/labels.h"
#include "profile/report/misuse_report.h"
#include "profile/report/place.h"
#include "profile/sampling.h"
#include "profile/stacks.h"
#include "profile/state.h"
#include "support/line.h"
#include "support/shared_variable.h"
#include "support/unwinder.h"

namespace qk::mem::profile {
namespace {

void put_number(JsonWriter& json, std::string_view key, std::uint64_t value) {
  json.key(key).number(value);
}

void put_text(JsonWriter& json, std::string_view key, std::string_view text) {
  json.key(key).text(text);
}

/** What all reports begin with. */
void begin_report(JsonWriter& json) {
  json.begin_object();
  put_text(json, "program", program_invocation_short_name);
  put_number(json, "process", static_cast<std::uint64_t>(getpid()));
  put_number(json, "copy", number_of_this_copy());
  put_number(json, "copies", copies());
  put_number(json, "start_ns", start_of_clock());
  if (sample_interval() != 0) put_number(json, "sample_interval_bytes", sample_interval());
}

void put_level(JsonWriter& json, const Level& level) {
  const std::uint64_t event = qk::load(level.highest_event);
  put_number(json, "peak_bytes", qk::load(level.highest));
  put_number(json, "peak_event", event);
  put_number(json, "peak_time_ns", time_of_event(event));
}

void put_error(JsonWriter& json, std::uint64_t live_bytes) {
  if (sample_interval() == 0) return;
  put_number(json, "live_bytes_standard_error", standard_error(live_bytes));
}

void put_whole(JsonWriter& json, const Rows& rows) {
  std::uint64_t live_bytes = 0;
  std::uint64_t live_blocks = 0;
  std::uint64_t made_bytes = 0;
  std::uint64_t made_blocks = 0;
  for (const Row& row : rows) {
    live_bytes += row.live_bytes;
    live_blocks += row.live_blocks;
    made_bytes += row.made_bytes;
    made_blocks += row.made_blocks;
  }
  put_number(json, "live_bytes", live_bytes);
  put_number(json, "live_blocks", live_blocks);
  put_number(json, "made_bytes", made_bytes);
  put_number(json, "made_blocks", made_blocks);
  put_level(json, whole_now());
  put_number(json, "peak_tolerance_bytes", peak_tolerance());
  put_error(json, live_bytes);
}

void put_handles(JsonWriter& json) {
  json.start_line().key("handles").begin_array();
  for (std::uint32_t number = 1; number <= pools.count(); ++number) {
    const Pool& pool = pools.at(number);
    const PoolSums sums = sums_of(pool);
    json.start_line().begin_object();
    put_number(json, "handle", static_cast<std::uint64_t>(pool.hid));
    put_text(json, "tag", tag_levels.at(pool.tag).name);
    json.key("is_alive").boolean(qk::load(pool.is_alive) != 0);
    json.key("is_autofree").boolean(qk::load(pool.is_autofree) != 0);
    put_number(json, "live_bytes", qk::load(pool.level.live));
    put_number(json, "live_blocks", sums.live_blocks);
    put_number(json, "made_bytes", sums.made_bytes);
    put_number(json, "made_blocks", sums.made_blocks);
    put_level(json, pool.level);
    json.end_object();
  }
  json.end_array();
}

void put_tags(JsonWriter& json) {
  json.start_line().key("tags").begin_array();
  for (std::uint32_t number = 1; number <= tag_levels.count(); ++number) {
    const TagLevel& tag = tag_levels.at(number);
    json.start_line().begin_object();
    put_text(json, "tag", tag.name);
    put_number(json, "live_bytes", live_bytes_of_tag(number));
    put_level(json, tag.level);
    json.end_object();
  }
  json.end_array();
}

void put_frame(JsonWriter& json, const qk::Frame& frame) {
  json.begin_object();
  if (!frame.function.empty()) put_text(json, "function", frame.function);
  if (!frame.file.empty()) put_text(json, "file", frame.file);
  if (frame.line > 0) put_number(json, "line", static_cast<std::uint64_t>(frame.line));
  if (frame.module != nullptr) {
    put_text(json, "module", frame.module->path);
    put_text(json, "build_id", frame.module->build_id.text());
    put_number(json, "offset", frame.offset);
  }
  json.end_object();
}

void put_stack(JsonWriter& json, const Stack& stack, Naming naming) {
  NamedFrames frames;
  const int count = name_frames(stack, naming, frames);
  json.key("stack").begin_array();
  for (int i = 0; i < count; ++i) put_frame(json, frames[i]);
  json.end_array();
}

void put_place(JsonWriter& json, const Row& row) {
  if (row.kind != RowKind::kSite) {
    qk::Line place;
    put_bare_place(place, row);
    put_text(json, "place", place.finish());
    return;
  }
  const Pool& pool = pools.at(row.key.pool);
  put_text(json, "file", row.key.file == nullptr ? "" : row.key.file);
  put_number(json, "line", row.key.line);
  put_number(json, "handle", static_cast<std::uint64_t>(pool.hid));
  put_text(json, "tag", tag_levels.at(pool.tag).name);
  if (row.key.label == 0) return;
  qk::Line label;
  put_label(label, row.key.label);
  put_text(json, "label", label.finish());
}

void put_losses(JsonWriter& json, const lost::Losses& losses) {
  put_number(json, "lost_bytes", losses.lost.bytes);
  put_number(json, "lost_blocks", losses.lost.blocks);
  put_number(json, "lost_with_them_bytes", losses.with_owner.bytes);
  put_number(json, "lost_with_them_blocks", losses.with_owner.blocks);
  put_number(json, "unreachable_bytes", losses.gone.bytes);
  put_number(json, "unreachable_blocks", losses.gone.blocks);
}

void put_search(JsonWriter& json, const lost::Findings::Summary& search) {
  json.key("search_for_lost").begin_object();
  json.key("is_done").boolean(search.obstacle == lost::Obstacle::kNone);
  put_text(json, "obstacle", reason_of(search.obstacle));
  json.key("lacks_registers").boolean(search.lacks_registers);
  json.key("lacks_free_memory").boolean(search.lacks_heap);
  json.end_object();
}

bool was_searched(const lost::Findings* findings) {
  return findings != nullptr && findings->summary().obstacle == lost::Obstacle::kNone;
}

void put_site(JsonWriter& json, const Row& row, Naming naming, bool has_losses) {
  json.start_line().begin_object();
  put_place(json, row);
  if (row.is_ignored) json.key("ignored").boolean(true);
  put_number(json, "live_bytes", row.live_bytes);
  put_error(json, row.live_bytes);
  put_number(json, "live_blocks", row.live_blocks);
  if (has_losses) put_losses(json, row.losses);
  put_number(json, "bytes_at_peak", row.bytes_at_peak);
  put_number(json, "highest_bytes", row.highest_bytes);
  put_number(json, "made_bytes", row.made_bytes);
  put_number(json, "made_blocks", row.made_blocks);
  put_number(json, "largest_block", row.largest_block);
  put_number(json, "freed_soon", row.freed_soon);
  put_number(json, "sum_of_lives", row.sum_of_lives);
  put_number(json, "first_event", row.first_event);
  put_number(json, "last_event", row.last_event);
  put_number(json, "first_time_ns", time_of_event(row.first_event));
  put_number(json, "last_time_ns", time_of_event(row.last_event));
  if (row.key.stack != 0) put_stack(json, program_stack(row, naming), naming);
  json.end_object();
}

void put_change(JsonWriter& json, const Change& change) {
  json.key("grown_bytes").signed_number(change.bytes);
  json.key("grown_blocks").signed_number(change.blocks);
  put_number(json, "made_bytes", change.made_bytes);
  put_number(json, "made_blocks", change.made_blocks);
}

/** The names of snapshots can be any texts; the start and the present have none. */
void put_end(JsonWriter& json, std::string_view key, const PeriodEnd& end) {
  json.key(key).begin_object().key("name");
  if (end.name == nullptr) {
    json.null();
  } else {
    json.text(end.name);
  }
  put_number(json, "event", end.event);
  put_number(json, "time_ns", end.time);
  json.end_object();
}

bool is_quiet(const Row& row) { return change_of(row) == Change{}; }

void put_grown_handles(JsonWriter& json, const Rows& handles) {
  json.start_line().key("handles").begin_array();
  for (const Row& row : handles) {
    if (is_quiet(row)) continue;
    const Pool& pool = pools.at(row.key.pool);
    json.start_line().begin_object();
    put_number(json, "handle", static_cast<std::uint64_t>(pool.hid));
    put_text(json, "tag", tag_levels.at(pool.tag).name);
    put_change(json, change_of(row));
    json.end_object();
  }
  json.end_array();
}

void put_grown_tags(JsonWriter& json, const Rows& handles) {
  json.start_line().key("tags").begin_array();
  for (std::uint32_t number = 1; number <= tag_levels.count(); ++number) {
    Row sum = {};
    for (const Row& row : handles) {
      if (pools.at(row.key.pool).tag == number) add_figures(sum, row);
    }
    if (is_quiet(sum)) continue;
    json.start_line().begin_object();
    put_text(json, "tag", tag_levels.at(number).name);
    put_change(json, change_of(sum));
    json.end_object();
  }
  json.end_array();
}

void put_grown_sites(JsonWriter& json, const Rows& rows, Naming naming) {
  json.start_line().key("sites").begin_array();
  for (const Row& row : rows) {
    if (is_quiet(row)) continue;
    json.start_line().begin_object();
    put_place(json, row);
    put_change(json, change_of(row));
    put_number(json, "live_bytes", row.live_bytes);
    put_number(json, "live_blocks", row.live_blocks);
    if (row.key.stack != 0) put_stack(json, program_stack(row, naming), naming);
    json.end_object();
  }
  json.end_array();
}

}  // namespace

bool put_json_growth(qk::PageBuffer& out, Growth& growth, Naming naming) {
  sort_by_growth({growth.rows.begin(), growth.rows.end()}, Sort::kBytes);
  Row sum = {};
  for (const Row& row : growth.handles) add_figures(sum, row);
  JsonWriter json(out);
  begin_report(json);
  put_number(json, "clock_precision_ns", clock_precision());
  put_number(json, "own_bytes", own_bytes());
  put_end(json, "since", growth.period.begin);
  put_end(json, "until", growth.period.end);
  put_change(json, change_of(sum));
  put_grown_handles(json, growth.handles);
  put_grown_tags(json, growth.handles);
  put_grown_sites(json, growth.rows, naming);
  json.end_object();
  return json.is_complete();
}

bool put_json_report(qk::PageBuffer& out, const Rows& rows, Naming naming,
                     const lost::Findings* findings) {
  JsonWriter json(out);
  begin_report(json);
  put_number(json, "duration_ns", time_now());
  put_number(json, "clock_precision_ns", clock_precision());
  put_number(json, "events", events_so_far());
  put_text(json, "unwinder", qk::unwinder_name());
  put_number(json, "own_bytes", own_bytes());
  put_number(json, "handles_left_out", qk::load(handles_left_out));
  if (findings != nullptr) put_search(json, findings->summary());
  put_whole(json, rows);
  put_handles(json);
  put_tags(json);
  put_json_misuses(json);
  json.start_line().key("sites").begin_array();
  for (const Row& row : rows) put_site(json, row, naming, was_searched(findings));
  json.end_array().end_object();
  return json.is_complete();
}

}  // namespace qk::mem::profile
