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
enum class TraceFlaw : unsigned char {
  kNotANumber,
  kOutOfRange,
  kNotOneByte,
  kOtherHeading,
  kRowEnds,
  kFileEnds,
  kMoreColumns
};

/** The first flaw of a row, and where it is. */
struct TraceFault {
  std::uint64_t line = 0;  // as TraceReader counts them
  TraceColumn column{};
  TraceFlaw flaw{};

  bool operator==(const TraceFault&) const = default;
};

/** The fault in words, without a newline: "line 7, column 6 (Size): not a number". */
[[nodiscard]] std::string message_of(const TraceFault& fault);

/**
 * Finds where rows end, in bytes that come in pieces. A row ends with its first newline that isn't
 * its type: the byte behind the second tab is the type, a newline too if a tab follows it.
 */
class TraceRowEnds {
 public:
  /** How many bytes of a piece belong to the row, and whether it ends with them. */
  struct Found {
    std::size_t bytes;
    bool ends;
  };

  /** Looks for the end of the row begun before; the first one is the headings, without a type. */
  [[nodiscard]] Found find(std::string_view piece) noexcept;

  /** All newlines so far, those that are types too. */
  [[nodiscard]] std::uint64_t newlines() const noexcept { return newlines_; }

 private:
  enum class Place : unsigned char { kInSequence, kInHandle, kAtType, kBehindNewline, kBehindType };

  [[nodiscard]] Place behind(char c) const noexcept;
  [[nodiscard]] Found end_at(std::size_t bytes) noexcept;

  Place place_ = Place::kBehindType;
  std::uint64_t newlines_ = 0;
};

/**
 * Reads a trace file row by row from bytes that come in pieces of any size. Each piece goes to
 * feed(), and next() is then called until it answers kNeedsMore; behind the last piece comes
 * finish(), and next() until kEnd.
 *
 * A row's type is one byte of any value; file names are any bytes but tab and newline. Lines are
 * counted as editors count them: a row's line is one more than there are newlines in front of it,
 * and the headings are line 1. A type that is a newline counts, so what follows such a row is two
 * lines further down. Only a row that lies in several pieces is copied. One thread at a time.
 */
class TraceReader {
 public:
  enum class Answer : unsigned char {
    kRow,        // row() is the next one
    kBroken,     // fault() tells what is wrong with a line; the next call goes on behind it
    kNeedsMore,  // the bytes are used up
    kEnd         // the bytes are used up and were the last ones
  };

  /** Hands bytes over once those before are used up. They are read in place until kNeedsMore. */
  void feed(std::string_view bytes) noexcept { bytes_ = bytes; }

  /** Tells, once the bytes are used up, that no others follow. */
  void finish() noexcept { finished_ = true; }

  [[nodiscard]] Answer next();

  /** The row, if that was the answer. Its file can be read until the next call of next(). */
  [[nodiscard]] const TraceRow& row() const noexcept { return row_; }

  /** The fault, if a broken line was the answer. */
  [[nodiscard]] const TraceFault& fault() const noexcept { return fault_; }

 private:
  [[nodiscard]] std::optional<std::string_view> next_line();
  [[nodiscard]] std::optional<std::string_view> line_without_end();

  std::string_view bytes_;
  std::string carried_;  // a line that lies in several pieces
  TraceRowEnds ends_;
  TraceRow row_;
  TraceFault fault_;
  std::uint64_t line_ = 1;
  bool carries_ = false;  // the line in carried_ goes on in the next piece
  bool at_headings_ = true;
  bool finished_ = false;
};

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_TRACE_READER_H_
