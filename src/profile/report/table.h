#ifndef QKMEM_PROFILE_REPORT_TABLE_H_
#define QKMEM_PROFILE_REPORT_TABLE_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "formats/figures.h"
#include "profile/report/rows.h"
#include "profile/report/style.h"
#include "support/line.h"
#include "support/page_writer.h"

namespace qk::mem::profile {

/** Characters that a line of a report takes where it can. */
inline constexpr std::size_t kReportWidth = 100;

/** The figures of a row, in the columns of a table. */
template <std::size_t N>
using Cells = std::array<Figure, N>;

/** The headings of N columns of figures, and that of the text at the end of each line. */
template <std::size_t N>
using Headings = std::array<std::string_view, N + 1>;

inline void put_right_aligned(qk::Line& line, std::string_view text, std::size_t width) {
  for (std::size_t i = text.size(); i < width; ++i) line.put(' ');
  line.put(text);
}

/**
 * Appends a table of rows. Its columns are as wide as they have to be.
 *
 * @param cells_of   returns the Cells of a row.
 * @param put_place  appends a row's text to a line, in at most so many characters.
 */
template <std::size_t N, class CellsOf, class PutPlace>
void put_table(qk::PageWriter& out, const Style& style, const Headings<N>& headings,
               std::span<const Row> rows, CellsOf cells_of, PutPlace put_place) {
  std::array<std::size_t, N> widths = {};
  for (std::size_t i = 0; i < N; ++i) widths[i] = headings[i].size();
  for (const Row& row : rows) {
    const Cells<N> cells = cells_of(row);
    for (std::size_t i = 0; i < N; ++i) {
      widths[i] = std::max(widths[i], cells[i].text().size());
    }
  }
  qk::Line heading;
  heading.put(style.aside);
  for (std::size_t i = 0; i < N; ++i) put_right_aligned(heading, headings[i], widths[i] + 2);
  out.put(heading.put("  ").put(headings[N]).put(style.end).put('\n').finish());
  for (const Row& row : rows) {
    const Cells<N> cells = cells_of(row);
    qk::Line line;
    for (std::size_t i = 0; i < N; ++i) put_right_aligned(line, cells[i].text(), widths[i] + 2);
    line.put("  ");
    put_place(line, row, line.length() < kReportWidth ? kReportWidth - line.length() : 0);
    out.put(line.put('\n').finish());
  }
}

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_TABLE_H_
