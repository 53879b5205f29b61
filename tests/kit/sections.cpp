// Reports, taken apart into their sections.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qkmem/qkmem.h"
#include "tests/kit/report.h"

namespace kit {
namespace {

constexpr std::string_view kRule =
    "   ----------------------------------------------------------------------------\n";

constexpr std::string_view kSummaryHeadings[] = {
    kRule,
    "   Category         Qty        Amt\n",
    "   -------------------------------\n",
};
constexpr std::string_view kSummaryZeros[] = {
    "   Current:           0          0\n", "   Overhead:          0          0\n",
    "   Data:              0          0\n", "   Management:        0          0\n",
    "   Initial:                      0\n", "   Heap:                         0\n",
    "   Untracked:                    0\n",
};

constexpr std::string_view kDetailsHeadings[] = {
    "\n",
    "    Hndl Tg          Address Typ Qty     Size    Total     Seq Location\n",
    kRule,
};
constexpr struct {
  unsigned option;
  std::string_view band;
} kDetails[] = {
    {QK_MEM_DUMP_HANDLES,
     "   - - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_MGMT,
     "   - - - - - - - - - - - - - Overhead handle management  - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_BLOCKS,
     "   - - - - - - - - - - - - - Overhead handle blocks  - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_POINTERS,
     "   - - - - - - - - - - - - - Overhead handle pointers  - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_HANDLES,
     "   - - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_MGMT,
     "   - - - - - - - - - - - - - Data handle management  - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_BLOCKS,
     "   - - - - - - - - - - - - - Data handle blocks  - - - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_POINTERS,
     "   - - - - - - - - - - - - - Data handle pointers  - - - - - - - - - - - - - - \n"},
};

constexpr std::string_view kFrame =
    "  -----------------------------------------------------------------------------\n";
constexpr std::string_view kSeparator =
    "  |---------------------------------------------------------------------------|\n";
constexpr std::string_view kComparisonHeadings[] = {
    kFrame,
    "  |                           |    BASELINE   |    CURRENT    |     GROWTH    |\n",
    "  | Description               |  Qty       Amt|  Qty       Amt|   Pct      Amt|\n",
    kSeparator,
};
constexpr std::string_view kComparisonZeros[] = {
    "  |Data handles               |    0         0|    0         0|   n/a      n/a|\n",
    "  |Overhead handles           |    0         0|    0         0|   n/a      n/a|\n",
    "  |Total of all handles       |    0         0|    0         0|   n/a      n/a|\n",
    "  |Handle management          |    0         0|    0         0|   n/a      n/a|\n",
    "  |Handles plus management    |    0         0|    0         0|   n/a      n/a|\n",
    "  |Current heap               |              0|              0|   n/a      n/a|\n",
    "  |Initial heap               |               |              0|               |\n",
    "  |Untracked memory usage     |               |              0|               |\n",
};
constexpr std::string_view kComparedTags =
    "  |Tags:                      |               |               |               |\n";
constexpr std::string_view kComparedHandles =
    "  |Hndl Tg Tp Created         |               |               |               |\n";
constexpr std::string_view kComparedBands[] = {
    "  |- - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - -|\n",
    "  |- - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - -|\n",
};

/** "Data handles\n" for any band of that title. */
std::string title_of(std::string_view band) {
  const std::size_t start = band.find_first_not_of(" |-");
  return std::string(band.substr(start, band.find("  -", start) - start)) + "\n";
}

/** The part of a row of totals before its figures. */
std::string_view label_of(std::string_view row) {
  return row.substr(0, row.find_first_of(":|", row.find_first_not_of(" |")) + 1);
}

/**
 * Reads a report from its first line to its last. A line that is not exactly the heading that must
 * come next becomes part of the result, and so does a heading that is missing.
 */
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  void skip(std::string_view heading) {
    if (next() == heading) {
      drop();
    } else {
      result_.append("missing: ").append(heading);
    }
  }

  template <std::size_t n>
  void skip_all(const std::string_view (&headings)[n]) {
    for (const std::string_view heading : headings) skip(heading);
  }

  /** Copies the lines above `first`, if it is there. */
  void copy_lines_above(std::string_view first) {
    const std::size_t at = first == next() ? 0 : rest_.find("\n" + std::string(first)) + 1;
    result_ += rest_.substr(0, at);
    rest_.remove_prefix(at);
  }

  /** Copies the row of each label in `zeros` unless it is the one given there. */
  template <std::size_t n>
  void copy_totals(std::string title, const std::string_view (&zeros)[n]) {
    for (const std::string_view zero : zeros) {
      if (next() == zero) {
        drop();
      } else if (label_of(next()) == label_of(zero)) {
        result_ += std::exchange(title, "");
        copy();
      } else {
        result_.append("missing: ").append(zero);
      }
    }
  }

  /** Copies all lines above `end`. */
  void copy_rows(const std::string& title, std::string_view end) {
    if (rest_.empty() || next() == end) return;
    result_ += title;
    while (!rest_.empty() && next() != end) copy();
  }

  /** Copies a section whose rows are replaced by an empty line when it has none. */
  void copy_section(std::string_view band, std::string_view end) {
    skip(band);
    const std::string_view after = rest_.substr(next().size());
    if (next() == "\n" && first_line(after) == end) return drop();
    if (next() == end) result_.append("missing: empty line of ").append(title_of(band));
    copy_rows(title_of(band), end);
  }

  std::string finish() {
    while (!rest_.empty()) {
      result_ += "after the end: ";
      copy();
    }
    return std::move(result_);
  }

 private:
  static std::string_view first_line(std::string_view text) {
    const std::size_t end = text.find('\n');
    return end == std::string_view::npos ? text : text.substr(0, end + 1);
  }
  [[nodiscard]] std::string_view next() const { return first_line(rest_); }
  void drop() { rest_.remove_prefix(next().size()); }
  void copy() {
    result_ += next();
    drop();
  }

  std::string_view rest_;
  std::string result_;
};

void read_comparison(Reader& reader) {
  reader.copy_lines_above(kFrame);
  reader.skip_all(kComparisonHeadings);
  reader.copy_totals("Totals\n", kComparisonZeros);
  reader.skip(kSeparator);
  reader.skip(kComparedTags);
  reader.copy_rows("Tags\n", kSeparator);
  reader.skip(kSeparator);
  reader.skip(kComparedHandles);
  reader.copy_section(kComparedBands[0], kComparedBands[1]);
  reader.copy_section(kComparedBands[1], kFrame);
  reader.skip(kFrame);
}

void read_summary_and_details(Reader& reader, unsigned options) {
  // Management alone has no headings.
  constexpr unsigned kWithHeadings =
      QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;
  std::vector<std::string_view> bands;
  for (const auto& section : kDetails) {
    if ((options & section.option) != 0) bands.push_back(section.band);
  }
  bands.push_back(kRule);
  const bool headings = (options & kWithHeadings) != 0;
  const std::string_view details = headings ? kDetailsHeadings[0] : bands.front();
  if ((options & QK_MEM_DUMP_SUMMARY) != 0) {
    reader.copy_lines_above(kRule);
    reader.skip_all(kSummaryHeadings);
    reader.copy_totals("Summary\n", kSummaryZeros);
    reader.skip("   Tags:\n");
    reader.copy_rows("Tags\n", details);
  } else {
    reader.copy_lines_above(details);
  }
  if (headings) reader.skip_all(kDetailsHeadings);
  for (std::size_t i = 0; i + 1 < bands.size(); ++i) reader.copy_section(bands[i], bands[i + 1]);
  reader.skip(kRule);
}

}  // namespace

std::string sections_of(std::string_view text, unsigned options) {
  Reader reader(text);
  if ((options & QK_MEM_DUMP_COMPARISON) != 0) {
    read_comparison(reader);
  } else {
    read_summary_and_details(reader, options);
  }
  return reader.finish();
}

std::string sections(const char* filter, unsigned options) {
  return sections_of(report(filter, options), options);
}

}  // namespace kit
