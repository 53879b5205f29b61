#ifndef QKMEM_TOOLS_INPUT_TABLE_ROWS_H_
#define QKMEM_TOOLS_INPUT_TABLE_ROWS_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "formats/trace_reader.h"
#include "formats/trace_row.h"
#include "input/bytes.h"
#include "ledger/index_table.h"
#include "ledger/places.h"

namespace qk::command {

inline constexpr SiteIndex kNoPlace = IndexTable::kNone;

struct NumberedRow {
  mem::TraceRow row;
  std::uint64_t line = 0;
  SiteIndex place =
      kNoPlace;  // a number of its file and line, if it makes a block of the program's
};

/** A line that is no row. */
struct BrokenLine {
  std::size_t rows_before = 0;  // in its piece
  mem::TraceError error;
};

/** The rows that end in a piece of a table. Their texts are in it, so it is not copied. */
class TableRows {
 public:
  TableRows() = default;
  TableRows(const TableRows&) = delete;
  TableRows& operator=(const TableRows&) = delete;

  [[nodiscard]] std::span<const NumberedRow> rows() const { return std::span(rows_).first(count_); }
  [[nodiscard]] const std::vector<BrokenLine>& broken() const { return broken_; }

  /** How much of the input was read with it, in bytes. */
  [[nodiscard]] std::uint64_t position() const { return position_; }

 private:
  friend class TableRowReader;

  void keep_text(std::string_view& text);

  std::vector<char> bytes_ = std::vector<char>(kPieceBytes);
  std::string spread_;  // a text whose row began in the piece before
  std::vector<NumberedRow> rows_;
  std::size_t count_ = 0;  // the others are of older pieces
  std::vector<BrokenLine> broken_;
  std::uint64_t position_ = 0;
};

/** Reads a table, piece by piece. */
class TableRowReader {
 public:
  explicit TableRowReader(Bytes& bytes) : bytes_(bytes) {}

  /** Reads the next piece. Returns false at the end. Throws InputError. */
  [[nodiscard]] bool read(TableRows& piece);

 private:
  void read_rows(TableRows& piece);
  [[nodiscard]] SiteIndex place_of(const mem::TraceRow& row);

  Bytes& bytes_;
  mem::TraceReader reader_;
  Sites places_;  // on no handle
  bool is_finished_ = false;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_TABLE_ROWS_H_
