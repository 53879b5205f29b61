#ifndef QKMEM_FORMATS_TRACE_READER_H_
#define QKMEM_FORMATS_TRACE_READER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "formats/trace_columns.h"
#include "formats/trace_row.h"

namespace qk::mem {

/** What can be wrong with a row, or with the line of headings. */
enum class TraceErrorKind : unsigned char {
  kNotANumber,
  kOutOfRange,
  kNotOneByte,
  kOtherHeading,
  kRowEnds,
  kFileEnds,
  kMoreColumns
};

/** The first error in a row, and its position. */
struct TraceError {
  std::uint64_t line = 0;  // as counted by TraceReader
  TraceColumn column{};
  TraceErrorKind kind{};

  bool operator==(const TraceError&) const = default;
};

/** Returns a message without a newline: "line 7, column 6 (Size): not a number". */
[[nodiscard]] std::string message_of(const TraceError& error);

/**
 * Finds the ends of rows in bytes that arrive in pieces. A row ends at its first newline that isn't
 * its type. The byte after the second tab is the type; a newline there is the type if a tab
 * follows.
 */
class TraceRowEnds {
 public:
  /** How many bytes of a piece belong to the row, and whether the row ends with them. */
  struct Found {
    std::size_t bytes;
    bool ends;
  };

  /** Searches the end of the current row. The first row is the headings, which have no type. */
  [[nodiscard]] Found find(std::string_view piece) noexcept;

  /** The bytes of a whole row were read otherwise, which has one newline. */
  void pass_row() noexcept { ++newlines_; }

  /** Returns the number of newlines so far, including those that are types. */
  [[nodiscard]] std::uint64_t newlines() const noexcept { return newlines_; }

 private:
  enum class State : unsigned char { kInSequence, kInHandle, kAtType, kAfterNewline, kAfterType };

  [[nodiscard]] State after(char c) const noexcept;
  [[nodiscard]] Found end_at(std::size_t bytes) noexcept;

  State state_ = State::kAfterType;
  std::uint64_t newlines_ = 0;
};

/**
 * Reads a trace file row by row from bytes that arrive in pieces of any size. Pass each piece to
 * feed(), then call next() until it returns kNeedsMore. After the last piece call finish(), then
 * next() until it returns kEnd.
 *
 * The type of a row is one byte of any value. File names are any bytes but tab and newline. Lines
 * are counted as in an editor: the line of a row is one more than the number of newlines before it,
 * and the headings are line 1. A type that is a newline counts, so that the next row is two lines
 * further down. Only a row that is spread over several pieces is copied. One thread at a time.
 */
class TraceReader {
 public:
  enum class Answer : unsigned char {
    kRow,        // row() is the next row
    kBroken,     // error() says what is wrong with a line; the next call continues after it
    kNeedsMore,  // all bytes have been read
    kEnd         // all bytes have been read, and there are no more
  };

  /** Adds bytes, after kNeedsMore or at the start. They are read in place until kNeedsMore. */
  void feed(std::string_view bytes) noexcept { bytes_ = bytes; }

  /** Says, after kNeedsMore, that there are no more bytes. */
  void finish() noexcept { finished_ = true; }

  [[nodiscard]] Answer next() { return next(row_); }

  /** Same, into a row of the caller's. row() stays as it is. */
  [[nodiscard]] Answer next(TraceRow& row);

  /** The row, after kRow. Its `file` is valid until the next call of feed() or finish(). */
  [[nodiscard]] const TraceRow& row() const noexcept { return row_; }

  /** The line of the row or of the error. */
  [[nodiscard]] std::uint64_t line() const noexcept { return error_.line; }

  /** The error, after kBroken. */
  [[nodiscard]] const TraceError& error() const noexcept { return error_; }

 private:
  [[nodiscard]] bool read_usual(TraceRow& row);
  void begin_line() noexcept;
  [[nodiscard]] std::optional<std::string_view> next_line();
  [[nodiscard]] std::optional<std::string_view> line_without_end();
  [[nodiscard]] std::string_view take_carried();

  std::string_view bytes_;
  std::string carried_;  // the begin of a line that is spread over several pieces
  std::string spread_;   // the last such line
  TraceRowEnds ends_;
  TraceRow row_;
  TraceError error_;
  std::uint64_t line_ = 1;
  bool carries_ = false;  // the line in carried_ continues in the next piece
  bool at_headings_ = true;
  bool finished_ = false;
};

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_TRACE_READER_H_
