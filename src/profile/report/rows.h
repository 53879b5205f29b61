#ifndef QKMEM_PROFILE_REPORT_ROWS_H_
#define QKMEM_PROFILE_REPORT_ROWS_H_

#include <compare>
#include <cstdint>
#include <span>

#include "lost/findings.h"
#include "profile/options.h"
#include "profile/pool.h"
#include "profile/snapshots.h"
#include "support/mapped_array.h"

/** The figures of all sites at one moment, for a report. */
namespace qk::mem::profile {

/** What a row is about. */
enum class RowKind : std::uint8_t {
  kSite,
  kFromBefore,  // memory from before the profile was switched on
  kNotRecorded  // memory that the profile had no room for
};

struct Row {
  RowKind kind;
  bool is_autofree;  // its handle is deleted when the program ends
  SiteKey key;
  std::uint64_t live_bytes;
  std::uint64_t live_blocks;
  std::uint64_t bytes_at_peak;
  std::uint64_t highest_bytes;
  std::uint64_t made_bytes;
  std::uint64_t made_blocks;
  std::uint64_t largest_block;
  std::uint64_t freed_soon;
  std::uint64_t sum_of_lives;  // of all blocks so far, in events
  std::uint64_t first_event;
  std::uint64_t last_event;
  lost::Losses losses;
  Figures before;   // at the beginning of a period, for its growth; otherwise all zero
  bool is_ignored;  // what it holds is a known leak, see mark_known_leaks()
  // Given by name_callers().
  std::uint32_t first_frame;  // in its ShownFrames
  std::uint32_t frame_count;
  bool begins_at_site;  // the first frame is the one with the place, and not a caller of it
};

using Rows = qk::MappedArray<Row>;

/** How many rows collect_rows() needs room for. */
[[nodiscard]] std::size_t rows_needed();

/**
 * Adds a row for each site that has ever allocated. Sites whose file has the same name at another
 * address are one row. With `findings` they have what was lost.
 */
void collect_rows(Rows& rows, const lost::Findings* findings = nullptr);

/** The order of places in a report. Equal rows are of the same place. */
[[nodiscard]] std::strong_ordering compare_places(const Row& left, const Row& right);

/** The row of a site. What it lived through is told up to an event. */
[[nodiscard]] Row row_of(const Site& site, std::uint64_t now);

/** Makes one row of those of the same place, in the order of places. */
void merge_equal_places(Rows& rows);

/** Adds the figures of a row to another one of the same place. */
void add_figures(Row& sum, const Row& row);

/** The order of file names in reports. */
[[nodiscard]] std::strong_ordering compare_files(const char* left, const char* right);

/** What a row has lost, with what only that leads to. */
[[nodiscard]] inline lost::Quantity lost_by(const Row& row) {
  lost::Quantity sum = row.losses.lost;
  sum.add(row.losses.with_owner);
  return sum;
}

/** What a row holds and the program can reach. */
[[nodiscard]] lost::Quantity kept_by(const Row& row);

/** Makes one row of neighbours that are the same to `is_same`. */
template <class IsSame>
void merge_neighbours(Rows& rows, IsSame is_same) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (kept != 0 && is_same(rows[kept - 1], rows[i])) {
      add_figures(rows[kept - 1], rows[i]);
    } else {
      rows[kept++] = rows[i];
    }
  }
  rows.shrink(kept);
}

/** Sorts rows by a figure, the largest first, and rows with equal figures by their place. */
void sort_rows(std::span<Row> rows, Sort order);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_ROWS_H_
