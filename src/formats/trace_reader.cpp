#include "formats/trace_reader.h"

#include <charconv>
#include <concepts>
#include <system_error>
#include <tuple>
#include <utility>

#include "formats/usual_row.h"

namespace qk::mem {
namespace {

using ErrorKind = std::optional<TraceErrorKind>;

template <class Number>
ErrorKind read_number(std::string_view text, Number& number, int base) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error == std::errc::invalid_argument || stop != end) return TraceErrorKind::kNotANumber;
  if (error == std::errc::result_out_of_range) return TraceErrorKind::kOutOfRange;
  return {};
}

/** The columns of one line, read from left to right. */
class Columns {
 public:
  /** @param line  with its newline, which the last line of a file can lack. */
  explicit Columns(std::string_view line) : rest_(line) {
    if (!rest_.ends_with('\n')) return;
    rest_.remove_suffix(1);
    end_ = TraceErrorKind::kRowEnds;
  }

  ErrorKind take(TraceColumn column, std::string_view& text) {
    const std::size_t tab = rest_.find('\t');
    if (column == kLastTraceColumn) return take_last(tab, text);
    if (tab == std::string_view::npos) return end_;
    text = rest_.substr(0, tab);
    rest_.remove_prefix(tab + 1);
    return {};
  }

  ErrorKind take(TraceColumn /*column*/, unsigned char& byte) {
    if (rest_.size() < 2) return end_;
    if (rest_[1] != '\t') return TraceErrorKind::kNotOneByte;
    byte = static_cast<unsigned char>(rest_[0]);
    rest_.remove_prefix(2);
    return {};
  }

  ErrorKind take(TraceColumn column, std::integral auto& number) {
    std::string_view text;
    const ErrorKind kind = take(column, text);
    return kind ? kind : read_number(text, number, 10);
  }

  /** A null address can have no digits, see put_trace_row(). */
  ErrorKind take(TraceColumn column, TraceAddress& address) {
    std::string_view text;
    std::uint64_t number = 0;
    ErrorKind kind = take(column, text);
    if (!kind && !text.empty()) kind = read_number(text, number, 16);
    address = TraceAddress{number};
    return kind;
  }

 private:
  ErrorKind take_last(std::size_t tab, std::string_view& text) const {
    if (tab != std::string_view::npos) return TraceErrorKind::kMoreColumns;
    if (end_ == TraceErrorKind::kFileEnds) return end_;
    text = rest_;
    return {};
  }

  std::string_view rest_;
  TraceErrorKind end_ = TraceErrorKind::kFileEnds;  // the error if no tab follows
};

template <std::size_t... columns>
ErrorKind read_fields(Columns line, TraceRow& row, TraceColumn& column,
                      std::index_sequence<columns...> /*all*/) {
  ErrorKind kind;
  const auto take = [&line, &column, &kind](TraceColumn next, auto& field) {
    column = next;
    kind = line.take(next, field);
    return !kind;
  };
  (void)(take(TraceColumn{columns}, row.*std::get<columns>(kTraceFields)) && ...);
  return kind;
}

/** Returns the error, which is in `column`, if there is one. */
ErrorKind read_row(std::string_view line, TraceRow& row, TraceColumn& column) {
  return read_fields(Columns(line), row, column, std::make_index_sequence<kTraceHeadings.size()>());
}

/** Same as read_row() for the first line. */
ErrorKind read_headings(std::string_view line, TraceColumn& column) {
  Columns headings(line);
  for (std::size_t i = 0; i < kTraceHeadings.size(); ++i) {
    column = static_cast<TraceColumn>(i);
    std::string_view heading;
    if (const ErrorKind kind = headings.take(column, heading)) return kind;
    if (heading != heading_of(column)) return TraceErrorKind::kOtherHeading;
  }
  return {};
}

std::string_view text_of(TraceErrorKind kind) {
  switch (kind) {
    case TraceErrorKind::kNotANumber:
      return "not a number";
    case TraceErrorKind::kOutOfRange:
      return "number out of range";
    case TraceErrorKind::kNotOneByte:
      return "not one byte";
    case TraceErrorKind::kOtherHeading:
      return "not this heading";
    case TraceErrorKind::kRowEnds:
      return "the row ends here";
    case TraceErrorKind::kFileEnds:
      return "the file ends here";
    case TraceErrorKind::kMoreColumns:
      return "more behind the last column";
  }
  return "";
}

}  // namespace

std::string message_of(const TraceError& error) {
  std::string message = "line " + std::to_string(error.line);
  message += ", column " + std::to_string(number_of(error.column));
  message.append(" (").append(heading_of(error.column)).append("): ");
  return message.append(text_of(error.kind));
}

TraceRowEnds::Found TraceRowEnds::find(std::string_view piece) noexcept {
  std::size_t at = 0;
  while (state_ != State::kAfterType && at < piece.size()) {
    const char c = piece[at];
    if (state_ == State::kAfterNewline && c != '\t') return end_at(at);
    ++at;
    if (c == '\n') ++newlines_;
    if (c == '\n' && state_ != State::kAtType) return end_at(at);
    state_ = after(c);
  }
  const std::size_t newline = piece.find('\n', at);
  if (newline == std::string_view::npos) return {piece.size(), false};
  ++newlines_;
  return end_at(newline + 1);
}

TraceRowEnds::State TraceRowEnds::after(char c) const noexcept {
  switch (state_) {
    case State::kInSequence:
      return c == '\t' ? State::kInHandle : state_;
    case State::kInHandle:
      return c == '\t' ? State::kAtType : state_;
    case State::kAtType:
      return c == '\n' ? State::kAfterNewline : State::kAfterType;
    case State::kAfterNewline:
    case State::kAfterType:
      break;
  }
  return State::kAfterType;
}

TraceRowEnds::Found TraceRowEnds::end_at(std::size_t bytes) noexcept {
  state_ = State::kInSequence;
  return {bytes, true};
}

TraceReader::Answer TraceReader::next(TraceRow& row) {
  if (read_usual(row)) return Answer::kRow;
  while (const auto line = next_line()) {
    const bool headings = std::exchange(at_headings_, false);
    begin_line();
    const ErrorKind kind =
        headings ? read_headings(*line, error_.column) : read_row(*line, row, error_.column);
    if (kind) {
      error_.kind = *kind;
      return Answer::kBroken;
    }
    if (!headings) return Answer::kRow;
  }
  return finished_ ? Answer::kEnd : Answer::kNeedsMore;
}

bool TraceReader::read_usual(TraceRow& row) {
  if (carries_ || at_headings_) return false;
  const std::size_t length = read_usual_row(bytes_, row);
  if (length == 0) return false;
  bytes_.remove_prefix(length);
  ends_.pass_row();
  begin_line();
  return true;
}

/** Notes the line that has been read. */
void TraceReader::begin_line() noexcept {
  error_.line = std::exchange(line_, ends_.newlines() + 1);
}

/** Returns the next complete line, or nothing if the bytes end before. */
std::optional<std::string_view> TraceReader::next_line() {
  const auto [count, ends] = ends_.find(bytes_);
  const std::string_view part = bytes_.substr(0, count);
  bytes_.remove_prefix(count);
  if (ends && !carries_) return part;
  carried_ += part;
  carries_ = !ends && !carried_.empty();
  if (ends) return take_carried();
  return finished_ ? line_without_end() : std::nullopt;
}

/** The rest at the end of the file. In a file without bytes that is the line of headings. */
std::optional<std::string_view> TraceReader::line_without_end() {
  if (!carries_ && !at_headings_) return std::nullopt;
  carries_ = false;
  return take_carried();
}

/** Rows of the same piece follow, and can end with the begin of another line that is carried. */
std::string_view TraceReader::take_carried() {
  spread_.swap(carried_);
  carried_.clear();
  return spread_;
}

}  // namespace qk::mem
