#include "profile/report/growth_report.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "formats/figures.h"
#include "profile/report/table.h"
#include "profile/report/text_parts.h"
#include "support/line.h"

namespace qk::mem::profile {
namespace {

/** The rows by what has become of them. */
struct Parts {
  std::span<Row> grown;
  std::span<Row> shrunk;
  std::size_t unchanged;
};

Parts divide(Rows& rows) {
  Row* const grown_end = std::partition(rows.begin(), rows.end(),
                                        [](const Row& row) { return change_of(row).is_growth(); });
  Row* const shrunk_end = std::partition(
      grown_end, rows.end(), [](const Row& row) { return change_of(row).is_shrinkage(); });
  return {{rows.begin(), grown_end},
          {grown_end, shrunk_end},
          static_cast<std::size_t>(rows.end() - shrunk_end)};
}

Change sum_of(std::span<const Row> rows) {
  Row sum = {};
  for (const Row& row : rows) add_figures(sum, row);
  return change_of(sum);
}

/** Sites that grow can have fewer blocks than before, and larger ones. */
void put_blocks(qk::Line& line, std::int64_t change) {
  if (change == 0) return;
  const std::uint64_t blocks = amount_of(change);
  line.put(" in ").put(count_figure(blocks).text()).put(" block").put(plural(blocks));
  if (change < 0) line.put(" fewer");
}

void put_end(qk::Line& line, const PeriodEnd& end, std::string_view without_name) {
  if (end.name == nullptr) {
    line.put(without_name);
  } else {
    put_snapshot_name(line, end.name);
  }
  line.put(" (event ").put(count_figure(end.event).text()).put(", ");
  line.put(time_figure(end.time).text()).put(")");
}

void put_verdict(qk::PageWriter& out, const Parts& parts, const Period& period,
                 const Style& style) {
  qk::Line line;
  put_heading(line.put(style.verdict));
  if (parts.grown.empty()) {
    line.put("nothing grew");
  } else {
    const Change sum = sum_of(parts.grown);
    line.put(count_figure(parts.grown.size()).text()).put(" site").put(plural(parts.grown.size()));
    line.put(" grew by ").put(size_figure(amount_of(sum.bytes)).text());
    put_blocks(line, sum.blocks);
  }
  put_end(line.put(" between "), period.begin, "the start");
  put_end(line.put(" and "), period.end, "now");
  if (!parts.shrunk.empty()) {
    line.put("; ").put(count_figure(parts.shrunk.size()).text());
    if (parts.grown.empty()) line.put(" site").put(plural(parts.shrunk.size()));
    const Change sum = sum_of(parts.shrunk);
    line.put(" shrank by ").put(size_figure(amount_of(sum.bytes)).text());
  }
  out.put(line.put(style.end).put('\n').finish());
}

void put_changed(qk::PageWriter& out, std::span<const Row> rows, const ShownFrames& frames,
                 const Style& style, std::string_view title, std::uint32_t top) {
  if (rows.empty()) return;
  put_rows<5>(out, rows, frames, style, title, top,
              {"grown", "blocks", "made", "held", "handle", "site"}, [](const Row& row) {
                const Change change = change_of(row);
                return Cells<5>{size_change_figure(change.bytes),
                                count_change_figure(change.blocks),
                                count_figure(change.made_blocks), size_figure(row.live_bytes),
                                handle_figure(row)};
              });
}

void put_unchanged(qk::PageWriter& out, std::size_t sites) {
  if (sites == 0) return;
  qk::Line line;
  line.put("qkmem: ").put(count_figure(sites).text()).put(" site").put(plural(sites));
  line.put(sites == 1 ? " holds" : " hold");
  out.put(line.put(" as much as before\n").finish());
}

}  // namespace

void put_growth_report(qk::PageWriter& out, Growth& growth, const ShownFrames& frames,
                       const Options& options, const Style& style) {
  const Parts parts = divide(growth.rows);
  put_verdict(out, parts, growth.period, style);
  put_sample(out);
  sort_by_growth(parts.grown, options.sort);
  put_changed(out, parts.grown, frames, style, "", options.top);
  sort_by_shrinkage(parts.shrunk, options.sort);
  put_changed(out, parts.shrunk, frames, style, "qkmem: shrank\n", options.top);
  put_unchanged(out, parts.unchanged);
  put_own_memory(out);
}

}  // namespace qk::mem::profile
