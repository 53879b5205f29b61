#ifndef QKMEM_TOOLS_OUTPUT_SHEET_H_
#define QKMEM_TOOLS_OUTPUT_SHEET_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/**
 * What a command answers: lines to read, and tables of figures. Each is written once, and comes out
 * as text for people, as CSV, or as JSON.
 */
namespace qk::command {

/**
 * How a column's figures are shown to people. Machines get the numbers, durations in nanoseconds,
 * and no shares.
 */
enum class Unit : std::uint8_t {
  kText,
  kCallers,  // a text whose beginning tells most
  kBytes,
  kCount,
  kShare,
  kDuration
};

[[nodiscard]] constexpr bool is_text(Unit unit) {
  return unit == Unit::kText || unit == Unit::kCallers;
}

struct Column {
  std::string_view title;  // for people, who don't see a column without one
  std::string_view key;    // for machines
  Unit unit = Unit::kText;
};

/** A part of a whole. */
struct Share {
  std::uint64_t part = 0;
  std::uint64_t whole = 0;
};

/** What has become of a figure. */
struct Change {
  std::uint64_t before = 0;
  std::uint64_t after = 0;
};

/** A text in a tree. */
struct Branch {
  std::string lead;  // what people see in front of it
  std::string text;
};

/** Nothing is shown as "-". */
using Cell = std::variant<std::monostate, std::string, std::uint64_t, bool, Share, Change, Branch>;

/** Cells side by side. */
template <class... Cells>
[[nodiscard]] std::vector<Cell> row_of(Cells&&... cells) {
  std::vector<Cell> row;
  row.reserve(sizeof...(cells));
  (row.emplace_back(std::forward<Cells>(cells)), ...);
  return row;
}

struct Sheet {
  std::string_view key;
  std::string title;  // for people; none if empty
  std::vector<Column> columns;
  std::vector<std::vector<Cell>> rows;
  std::uint64_t left_out = 0;   // rows that are not shown
  bool hides_if_empty = false;  // from people: a line says that there is nothing

  void add(std::vector<Cell> row) { rows.push_back(std::move(row)); }

  template <class... Cells>
  void add(Cells&&... cells) {
    add(row_of(std::forward<Cells>(cells)...));
  }
};

/** A fact of its own. */
struct Fact {
  std::string_view key;
  Cell value;
  Unit unit = Unit::kText;
};

struct Answer {
  std::string_view command;
  std::vector<std::string> lines;  // for people, in front of the sheets
  std::vector<Fact> facts;         // for machines: what the lines say
  std::vector<Sheet> sheets;
  std::vector<std::string> remarks;  // for people, at the end
};

enum class Style : std::uint8_t { kText, kCsv, kJson };

/** A cell as people see it. */
[[nodiscard]] std::string cell_text(const Cell& cell, Unit unit);

/** The whole answer as text that ends with a newline. `width` is that of the terminal. */
[[nodiscard]] std::string written(const Answer& answer, Style style, std::size_t width);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_OUTPUT_SHEET_H_
