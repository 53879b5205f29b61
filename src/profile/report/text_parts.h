#ifndef QKMEM_PROFILE_REPORT_TEXT_PARTS_H_
#define QKMEM_PROFILE_REPORT_TEXT_PARTS_H_

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "formats/figures.h"
#include "profile/report/callers.h"
#include "profile/report/place.h"
#include "profile/report/rows.h"
#include "profile/report/table.h"
#include "support/line.h"
#include "support/page_writer.h"

/** What reports for people are made of. */
namespace qk::mem::profile {

[[nodiscard]] inline std::string_view plural(std::uint64_t count) { return count == 1 ? "" : "s"; }

/** Appends "18 B in 2 blocks". */
void put_amount(qk::Line& line, std::uint64_t bytes, std::uint64_t blocks);

/** A time since the start: to a tenth of a second, since the clock is a coarse one. */
[[nodiscard]] Figure time_figure(std::uint64_t nanoseconds);

/** Begins the first line. Reports of several processes can go to the same place. */
void put_heading(qk::Line& line);

/** The number and the tag of a row's handle. */
[[nodiscard]] Figure handle_figure(const Row& row);

/** Says that figures are estimates, if they are; of a sum of bytes also with what error. */
void put_sample(qk::PageWriter& out, std::uint64_t bytes = 0);

/** Appends how much memory the profile has taken. */
void put_own_memory(qk::PageWriter& out);

/**
 * Appends a table of the first rows, and says how many are left out.
 *
 * @param title  a line of its own; none if it is empty.
 * @param top    rows that are shown; 0 for all.
 */
template <std::size_t N, class CellsOf>
void put_rows(qk::PageWriter& out, std::span<const Row> rows, const ShownFrames& frames,
              const Style& style, std::string_view title, std::uint32_t top,
              const Headings<N>& headings, CellsOf cells_of) {
  const std::size_t shown = top == 0 ? rows.size() : std::min<std::size_t>(rows.size(), top);
  out.put(title);
  put_table<N>(out, style, headings, rows.first(shown), cells_of,
               [&](qk::Line& line, const Row& row, std::size_t width) {
                 put_place(line, row, frames, style, width);
               });
  const std::size_t rest = rows.size() - shown;
  if (rest == 0) return;
  qk::Line line;
  line.put("  and ").put(count_figure(rest).text()).put(" more site").put(plural(rest));
  out.put(line.put(" (TOP=0 shows all)\n").finish());
}

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_TEXT_PARTS_H_
