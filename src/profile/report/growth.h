#ifndef QKMEM_PROFILE_REPORT_GROWTH_H_
#define QKMEM_PROFILE_REPORT_GROWTH_H_

#include <cstddef>
#include <cstdint>
#include <span>

#include "profile/report/rows.h"
#include "support/line.h"

/** What sites hold more, or less, than at a snapshot. */
namespace qk::mem::profile {

/** Which sites' growth is wanted. */
struct SiteFilter {
  std::int32_t handle = 0;  // 0 for any
  bool has_tag = false;
  char tag[4] = {};            // in upper case; "" for handles without one
  const char* file = nullptr;  // a pattern, see qk::matches(); null for any
};

/** Whether a handle is one that a filter selects. */
[[nodiscard]] bool selects(const SiteFilter& filter, const Pool& pool);

struct GrowthQuery {
  const char* since = nullptr;  // name of a snapshot; null for the start of the profile
  const char* until = nullptr;  // the same; null for now
  SiteFilter filter;

  /** Whether a report of growth is wanted, and not one of what is held. */
  [[nodiscard]] bool is_asked() const {
    return since != nullptr || until != nullptr || filter.handle != 0 || filter.has_tag ||
           filter.file != nullptr;
  }
};

/** An end of a period. */
struct PeriodEnd {
  const char* name;  // of the snapshot, as the query has it; null for the start, or for now
  std::uint64_t event;
  std::uint64_t time;  // in nanoseconds since the start of the clock
};

struct Period {
  PeriodEnd begin;
  PeriodEnd end;
};

/** The growth of one row. */
struct Change {
  std::int64_t bytes = 0;
  std::int64_t blocks = 0;
  std::uint64_t made_bytes = 0;  // during the period, or since a reset in it
  std::uint64_t made_blocks = 0;

  [[nodiscard]] bool operator==(const Change&) const = default;

  /** Blocks decide about rows with as many bytes as before. */
  [[nodiscard]] bool is_growth() const { return bytes > 0 || (bytes == 0 && blocks > 0); }
  [[nodiscard]] bool is_shrinkage() const { return bytes < 0 || (bytes == 0 && blocks < 0); }
};

[[nodiscard]] Change change_of(const Row& row);

/** The largest growth first, by bytes unless the order is that of BLOCKS or MADE. */
void sort_by_growth(std::span<Row> rows, Sort order);

/** The largest shrinkage first, by bytes unless the order is that of BLOCKS. */
void sort_by_shrinkage(std::span<Row> rows, Sort order);

/** The growth of all sites in a period. Rows have the figures of its end, and those before. */
struct Growth {
  Growth() : Growth(rows_needed(), pools.count()) {}

  /** Without the rows of sites, which take time to sort. */
  [[nodiscard]] static Growth of_handles() { return {0, pools.count()}; }

  /** Whether there was memory for all rows. */
  [[nodiscard]] bool has_room() const { return has_room_; }

  Period period = {};
  Rows rows;     // one for each site that the query selects
  Rows handles;  // one for each pool, in the order of their numbers, with its sums

 private:
  Growth(std::size_t site_count, std::size_t pool_count)
      : rows(site_count),
        handles(pool_count),
        has_room_(rows.capacity() == site_count && handles.capacity() == pool_count) {}

  bool has_room_;
};

/** Why there is no growth to report. */
enum class GrowthError : std::uint8_t {
  kNone,
  kNoBeginning,  // there is no snapshot of the name that the query has for it
  kNoEnd,        // likewise
  kBackwards     // the end is earlier than the beginning
};

[[nodiscard]] GrowthError collect_growth(Growth& growth, const GrowthQuery& query);

/** Says why collect_growth() has failed, in one line. */
void put_growth_error(qk::Line& line, GrowthError error, const GrowthQuery& query);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_GROWTH_H_
