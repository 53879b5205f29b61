#include "profile/report/rows.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "profile/site_table.h"
#include "support/shared_variable.h"

namespace qk::mem::profile {
namespace {

/** When the rows are collected. */
struct Moment {
  std::uint64_t event;
  const lost::Findings* findings;
  bool is_peak;  // more is held than ever before, as far as handles have told
};

void add_row(Rows& rows, const Site& site, Moment now) {
  if (qk::load(site.made_blocks) == 0) return;
  Row row = row_of(site, now.event);
  if (now.findings != nullptr) row.losses = now.findings->of(site);
  if (now.is_peak) row.bytes_at_peak = row.live_bytes;
  rows.push_back(row);
}

RowKind kind_of(const Site& site) {
  switch (site.number) {
    case kFromBeforeSite:
      return RowKind::kFromBefore;
    case kNotRecordedSite:
      return RowKind::kNotRecorded;
    default:
      return RowKind::kSite;
  }
}

std::uint64_t figure_of(const Row& row, Sort order) {
  switch (order) {
    case Sort::kBytes:
      return row.live_bytes;
    case Sort::kBlocks:
      return row.live_blocks;
    case Sort::kPeak:
      return row.bytes_at_peak;
    case Sort::kMade:
      return row.made_bytes;
    case Sort::kShort:
      return row.freed_soon;
    case Sort::kLost:
      return lost_by(row).bytes;
  }
  return 0;
}

}  // namespace

Row row_of(const Site& site, std::uint64_t now) {
  Row row = {};
  row.kind = kind_of(site);
  row.is_autofree = qk::load(pools.at(site.key.pool).is_autofree) != 0;
  // What belongs to no place is one row for all handles.
  if (row.kind == RowKind::kSite) row.key = site.key;
  row.live_bytes = qk::load(site.live_bytes);
  row.live_blocks = qk::load(site.live_blocks);
  row.bytes_at_peak = bytes_at_peak(site);
  row.highest_bytes = qk::load(site.highest_bytes);
  row.made_bytes = qk::load(site.made_bytes);
  row.made_blocks = qk::load(site.made_blocks);
  row.largest_block = qk::load(site.above_largest) - 1;
  row.freed_soon = qk::load(site.freed_soon);
  row.sum_of_lives = qk::load(site.lives) + row.live_blocks * now;
  row.first_event = qk::load(site.first_event);
  row.last_event = qk::load(site.last_event);
  return row;
}

/** Other threads may have freed something since the search. */
lost::Quantity kept_by(const Row& row) {
  const lost::Quantity& gone = row.losses.gone;
  return {row.live_bytes - std::min(row.live_bytes, gone.bytes),
          row.live_blocks - std::min(row.live_blocks, gone.blocks)};
}

std::strong_ordering compare_files(const char* left, const char* right) {
  if (left == right) return std::strong_ordering::equal;
  if (left == nullptr || right == nullptr) return left <=> right;
  return std::strcmp(left, right) <=> 0;
}

void add_figures(Row& sum, const Row& row) {
  sum.live_bytes += row.live_bytes;
  sum.live_blocks += row.live_blocks;
  sum.bytes_at_peak += row.bytes_at_peak;
  sum.highest_bytes += row.highest_bytes;  // at most: they can have been highest at different times
  sum.made_bytes += row.made_bytes;
  sum.made_blocks += row.made_blocks;
  sum.largest_block = std::max(sum.largest_block, row.largest_block);
  sum.freed_soon += row.freed_soon;
  sum.sum_of_lives += row.sum_of_lives;
  sum.first_event = std::min(sum.first_event, row.first_event);
  sum.last_event = std::max(sum.last_event, row.last_event);
  sum.losses.lost.add(row.losses.lost);
  sum.losses.with_owner.add(row.losses.with_owner);
  sum.losses.gone.add(row.losses.gone);
  sum.before.live_bytes += row.before.live_bytes;
  sum.before.live_blocks += row.before.live_blocks;
  sum.before.made_bytes += row.before.made_bytes;
  sum.before.made_blocks += row.before.made_blocks;
}

std::strong_ordering compare_places(const Row& left, const Row& right) {
  if (const auto order = left.kind <=> right.kind; std::is_neq(order)) return order;
  if (const auto order = compare_files(left.key.file, right.key.file); std::is_neq(order))
    return order;
  return std::tie(left.key.line, left.key.pool, left.key.stack, left.key.label,
                  left.is_autofree) <=> std::tie(right.key.line, right.key.pool, right.key.stack,
                                                 right.key.label, right.is_autofree);
}

void merge_equal_places(Rows& rows) {
  std::sort(rows.begin(), rows.end(), [](const Row& left, const Row& right) {
    return std::is_lt(compare_places(left, right));
  });
  merge_neighbours(rows, [](const Row& left, const Row& right) {
    return std::is_eq(compare_places(left, right));
  });
}

std::size_t rows_needed() { return sites.count() + std::size_t{2} * pools.count(); }

void collect_rows(Rows& rows, const lost::Findings* findings) {
  const Moment now = {events_so_far(), findings, whole_now().highest > qk::load(whole.highest)};
  for (std::uint32_t number = 1; number <= sites.count(); ++number) {
    add_row(rows, sites.at(number), now);
  }
  for (std::uint32_t number = 1; number <= pools.count(); ++number) {
    add_row(rows, pools.at(number).from_before, now);
    add_row(rows, pools.at(number).not_recorded, now);
  }
  merge_equal_places(rows);
}

void sort_rows(std::span<Row> rows, Sort order) {
  std::sort(rows.begin(), rows.end(), [order](const Row& left, const Row& right) {
    const std::uint64_t of_left = figure_of(left, order);
    const std::uint64_t of_right = figure_of(right, order);
    if (of_left != of_right) return of_left > of_right;
    return std::is_lt(compare_places(left, right));
  });
}

}  // namespace qk::mem::profile
