#include "profile/report/growth.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "profile/events.h"
#include "profile/site_table.h"
#include "support/mtx_lock.h"
#include "support/nearest_name.h"
#include "support/shared_variable.h"
#include "symbols/folding.h"

namespace qk::mem::profile {
namespace {

bool selects(const SiteFilter& filter, const SiteKey& key) {
  if (!selects(filter, pools.at(key.pool))) return false;
  return filter.file == nullptr || (key.file != nullptr && qk::matches(key.file, filter.file));
}

/** The figures of sites at both ends of a period. */
class Ends {
 public:
  Ends(const Snapshot* begin, const Snapshot* end) : begin_(begin), end_(end) {
    const std::uint64_t resets_at_end = end == nullptr ? resets_so_far() : end->resets;
    was_reset_ = begin != nullptr && begin->resets != resets_at_end;
  }

  /** Sets the figures of a row, of which `of` takes the site's out of a snapshot. */
  template <class Of>
  void set_figures(Row& row, Of of) const {
    if (begin_ != nullptr) row.before = of(*begin_);
    if (end_ != nullptr) {
      const Figures figures = of(*end_);
      row.live_bytes = figures.live_bytes;
      row.live_blocks = figures.live_blocks;
      row.made_bytes = figures.made_bytes;
      row.made_blocks = figures.made_blocks;
    }
    if (was_reset_) row.before.made_bytes = row.before.made_blocks = 0;
    row.before.made_bytes = std::min(row.before.made_bytes, row.made_bytes);
    row.before.made_blocks = std::min(row.before.made_blocks, row.made_blocks);
  }

 private:
  const Snapshot* begin_;
  const Snapshot* end_;
  bool was_reset_;
};

/** Adds a row to those of the sites and to that of its pool, if the site ever held something. */
void add(Growth& growth, const Row& row, std::uint32_t pool) {
  if (row.made_blocks == 0 && row.live_blocks == 0 && row.before.live_blocks == 0) return;
  growth.rows.push_back(row);
  if (pool <= growth.handles.size()) add_figures(growth.handles[pool - 1], row);
}

void add_handles(Growth& growth) {
  for (std::uint32_t pool = 1; pool <= growth.handles.capacity(); ++pool) {
    Row row = {};
    row.key.pool = pool;
    growth.handles.push_back(row);
  }
}

void add_sites(Growth& growth, const Ends& ends, const SiteFilter& filter, std::uint64_t now) {
  for (std::uint32_t number = 1; number <= sites.count(); ++number) {
    const Site& site = sites.at(number);
    if (!selects(filter, site.key)) continue;
    Row row = row_of(site, now);
    ends.set_figures(row, [number](const Snapshot& at) { return at.of_site(number); });
    add(growth, row, site.key.pool);
  }
}

/** What belongs to no place has no file either. */
void add_sites_of_pools(Growth& growth, const Ends& ends, const SiteFilter& filter,
                        std::uint64_t now) {
  if (filter.file != nullptr) return;
  for (std::uint32_t number = 1; number <= pools.count(); ++number) {
    const Pool& pool = pools.at(number);
    if (!selects(filter, pool)) continue;
    Row row = row_of(pool.from_before, now);
    ends.set_figures(row, [number](const Snapshot& at) { return at.from_before(number); });
    add(growth, row, number);
    row = row_of(pool.not_recorded, now);
    ends.set_figures(row, [number](const Snapshot& at) { return at.not_recorded(number); });
    add(growth, row, number);
  }
}

PeriodEnd end_at(const Snapshot* snapshot, const char* name, const PeriodEnd& otherwise) {
  return snapshot == nullptr ? otherwise : PeriodEnd{name, snapshot->event, snapshot->time};
}

GrowthError collect(Growth& growth, const GrowthQuery& query) QK_REQUIRES(growth_lock) {
  assert_growth_held();
  const Snapshot* const begin = query.since == nullptr ? nullptr : find_snapshot(query.since);
  const Snapshot* const end = query.until == nullptr ? nullptr : find_snapshot(query.until);
  if (begin == nullptr && query.since != nullptr) return GrowthError::kNoBeginning;
  if (end == nullptr && query.until != nullptr) return GrowthError::kNoEnd;
  if (begin != nullptr && end != nullptr && end->number < begin->number) {
    return GrowthError::kBackwards;
  }
  const PeriodEnd now = {nullptr, events_so_far(), time_now()};
  growth.period = {end_at(begin, query.since, {}), end_at(end, query.until, now)};
  const Ends ends(begin, end);
  add_handles(growth);
  add_sites(growth, ends, query.filter, now.event);
  add_sites_of_pools(growth, ends, query.filter, now.event);
  return GrowthError::kNone;
}

/** Appends the name that is meant by one that no snapshot has. */
void put_meant_name(qk::Line& line, const char* name) {
  const qk::MtxLock lock(growth_lock);
  qk::NearestName nearest(name);
  for (const Snapshot* at = newest_snapshot(); at != nullptr; at = at->next)
    nearest.try_name(at->name);
  if (nearest.name().empty()) {
    line.put("; there is none");
  } else {
    put_snapshot_name(line.put("; is "), nearest.name().data());
    line.put(" meant?");
  }
}

std::int64_t figure_of(const Row& row, Sort order) {
  const Change change = change_of(row);
  if (order == Sort::kBlocks) return change.blocks;
  if (order == Sort::kMade) return static_cast<std::int64_t>(change.made_bytes);
  return change.bytes;
}

}  // namespace

bool selects(const SiteFilter& filter, const Pool& pool) {
  if (filter.handle != 0 && filter.handle != pool.hid) return false;
  return !filter.has_tag || std::strcmp(filter.tag, tag_levels.at(pool.tag).name) == 0;
}

Change change_of(const Row& row) {
  return {static_cast<std::int64_t>(row.live_bytes - row.before.live_bytes),
          static_cast<std::int64_t>(row.live_blocks - row.before.live_blocks),
          row.made_bytes - row.before.made_bytes, row.made_blocks - row.before.made_blocks};
}

void sort_by_growth(std::span<Row> rows, Sort order) {
  std::sort(rows.begin(), rows.end(), [order](const Row& left, const Row& right) {
    const std::int64_t of_left = figure_of(left, order);
    const std::int64_t of_right = figure_of(right, order);
    return of_left != of_right ? of_left > of_right : std::is_lt(compare_places(left, right));
  });
}

void sort_by_shrinkage(std::span<Row> rows, Sort order) {
  if (order == Sort::kMade) order = Sort::kBytes;
  std::sort(rows.begin(), rows.end(), [order](const Row& left, const Row& right) {
    const std::int64_t of_left = figure_of(left, order);
    const std::int64_t of_right = figure_of(right, order);
    return of_left != of_right ? of_left < of_right : std::is_lt(compare_places(left, right));
  });
}

GrowthError collect_growth(Growth& growth, const GrowthQuery& query) {
  GrowthError error;
  {
    // The figures of snapshots must not be replaced meanwhile.
    const qk::MtxLock lock(growth_lock);
    error = collect(growth, query);
  }
  merge_equal_places(growth.rows);
  return error;
}

void put_growth_error(qk::Line& line, GrowthError error, const GrowthQuery& query) {
  if (error == GrowthError::kBackwards) {
    put_snapshot_name(line.put("qkmem: the snapshot "), query.until);
    put_snapshot_name(line.put(" is older than "), query.since);
  } else {
    // Not looked for again: another thread can have taken the snapshot meanwhile.
    const char* const name = error == GrowthError::kNoBeginning ? query.since : query.until;
    put_snapshot_name(line.put("qkmem: unknown snapshot "), name);
    put_meant_name(line, name);
  }
  line.put('\n');
}

}  // namespace qk::mem::profile
