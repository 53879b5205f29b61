#include "views/sheets.h"

#include <utility>

#include "views/groups.h"

namespace qk::command {
namespace {

using Cells = std::vector<Cell>;

/** A sheet with a row of cells for each group that they say something of, and its names behind. */
template <class CellsOf>
Sheet sheet_of(const Query& query, const Ledger& ledger, Sort sort, std::vector<Column> columns,
               CellsOf cells_of_figures, AmountOf amount = &amount_of) {
  Sheet sheet;
  sheet.key = "rows";
  sheet.columns = std::move(columns);
  for (const Column& column : columns_of(query, ledger)) sheet.columns.push_back(column);
  for (const Group& group : groups_of(query, ledger, query.sort.value_or(sort), amount)) {
    Cells cells = cells_of_figures(group.figures);
    if (cells.empty()) continue;
    if (query.rows != 0 && sheet.rows.size() == query.rows) {
      ++sheet.left_out;
      continue;
    }
    for (Cell& cell : cells_of(query, ledger, group)) cells.push_back(std::move(cell));
    sheet.add(std::move(cells));
  }
  return sheet;
}

Cell mean_of(std::uint64_t sum, std::uint64_t count) {
  if (count == 0) return {};
  return sum / count;
}

Cell mean_life(const Figures& figures) { return mean_of(figures.lives, figures.released); }

}  // namespace

Column life_column(const Ledger& ledger, std::string_view title, std::string_view key_in_events,
                   std::string_view key_in_time) {
  if (ledger.clock() == Clock::kEvents) return {title, key_in_events, Unit::kCount};
  return {title, key_in_time, Unit::kDuration};
}

Sheet sheet_of_top(const Query& query, const Ledger& ledger) {
  const std::uint64_t whole = amount_of(query, ledger.whole()).bytes;
  return sheet_of(query, ledger, Sort::kBytes,
                  {{"bytes", "bytes", Unit::kBytes},
                   {"blocks", "blocks", Unit::kCount},
                   {"share", "share_of_bytes", Unit::kShare},
                   {"at peak", "peak_bytes", Unit::kBytes},
                   {"made", "made_blocks", Unit::kCount},
                   {"bytes made", "made_bytes", Unit::kBytes}},
                  [&](const Figures& of) {
                    const Amount amount = amount_of(query, of);
                    return row_of(amount.bytes, amount.blocks, Share{amount.bytes, whole},
                                  of.at_peak.bytes, of.made.blocks, of.made.bytes);
                  });
}

Sheet sheet_of_leaks(const Query& query, const Ledger& ledger) {
  const std::uint64_t whole = ledger.whole().left().bytes;
  Sheet sheet = sheet_of(
      query, ledger, Sort::kBytes,
      {{"bytes", "live_bytes", Unit::kBytes},
       {"blocks", "live_blocks", Unit::kCount},
       {"share", "share_of_bytes", Unit::kShare},
       {"made", "made_blocks", Unit::kCount},
       {"largest", "largest_bytes", Unit::kBytes},
       {"last made", "last_event", Unit::kCount}},
      [&](const Figures& of) {
        const Amount left = of.left();
        if (left.blocks == 0) return Cells();
        return row_of(left.bytes, left.blocks, Share{left.bytes, whole}, of.made.blocks, of.largest,
                      of.last_event);
      },
      &left_of);
  sheet.hides_if_empty = true;
  return sheet;
}

Sheet sheet_of_peak(const Query& query, const Ledger& ledger) {
  const std::uint64_t whole = ledger.whole().at_peak.bytes;
  if (!ledger.has_events()) {
    return sheet_of(query, ledger, Sort::kPeak,
                    {{"at peak", "peak_bytes", Unit::kBytes},
                     {"share", "share_of_bytes", Unit::kShare},
                     {"own peak", "highest_bytes", Unit::kBytes},
                     {"at end", "live_bytes", Unit::kBytes}},
                    [&](const Figures& of) {
                      if (of.at_peak.bytes == 0) return Cells();
                      return row_of(of.at_peak.bytes, Share{of.at_peak.bytes, whole},
                                    of.highest.bytes, of.live.bytes);
                    });
  }
  return sheet_of(query, ledger, Sort::kPeak,
                  {{"at peak", "peak_bytes", Unit::kBytes},
                   {"blocks", "peak_blocks", Unit::kCount},
                   {"share", "share_of_bytes", Unit::kShare},
                   {"own peak", "highest_bytes", Unit::kBytes},
                   {"at end", "live_bytes", Unit::kBytes}},
                  [&](const Figures& of) {
                    if (of.at_peak.blocks == 0) return Cells();
                    return row_of(of.at_peak.bytes, of.at_peak.blocks,
                                  Share{of.at_peak.bytes, whole}, of.highest.bytes, of.live.bytes);
                  });
}

Sheet sheet_of_churn(const Query& query, const Ledger& ledger) {
  std::vector<Column> columns = {{"made", "made_blocks", Unit::kCount},
                                 {"bytes made", "made_bytes", Unit::kBytes},
                                 {"short-lived", "released_soon", Unit::kCount},
                                 {"share", "share_of_made", Unit::kShare}};
  if (ledger.has_events()) {
    columns.push_back(
        life_column(ledger, "mean life", "mean_life_events", "mean_life_nanoseconds"));
  }
  return sheet_of(query, ledger, Sort::kShort, std::move(columns), [&](const Figures& of) {
    if (of.made.blocks == 0) return Cells();
    Cells cells = row_of(of.made.blocks, of.made.bytes, of.released_soon,
                         Share{of.released_soon, of.made.blocks});
    if (ledger.has_events()) cells.push_back(mean_life(of));
    return cells;
  });
}

Sheet sheet_of_lives(const Query& query, const Ledger& ledger) {
  return sheet_of(
      query, ledger, Sort::kMade,
      {{"made", "made_blocks", Unit::kCount},
       {"released", "released_blocks", Unit::kCount},
       life_column(ledger, "mean life", "mean_life_events", "mean_life_nanoseconds"),
       life_column(ledger, "longest", "longest_life_events", "longest_life_nanoseconds"),
       {"mean size", "mean_bytes", Unit::kBytes},
       {"largest", "largest_bytes", Unit::kBytes}},
      [](const Figures& of) {
        if (of.made.blocks == 0) return Cells();
        return row_of(of.made.blocks, of.released, mean_life(of), of.longest_life,
                      mean_of(of.made.bytes, of.made.blocks), of.largest);
      });
}

}  // namespace qk::command
