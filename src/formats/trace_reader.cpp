#include "formats/trace_reader.h"

#include <charconv>
#include <concepts>
#include <system_error>
#include <tuple>
#include <utility>

namespace qk::mem {
namespace {

using Flaw = std::optional<TraceFlaw>;

template <class Number>
Flaw read_number(std::string_view text, Number& number, int base) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error == std::errc::invalid_argument || stop != end) return TraceFlaw::kNotANumber;
  if (error == std::errc::result_out_of_range) return TraceFlaw::kOutOfRange;
  return {};
}

/** The columns of one line, which are taken from left to right. */
class Columns {
 public:
  /** A line is handed over with its newline, which the last one of a file can lack. */
  explicit Columns(std::string_view line) : rest_(line) {
    if (!rest_.ends_with('\n')) return;
    rest_.remove_suffix(1);
    end_ = TraceFlaw::kRowEnds;
  }

  Flaw take(TraceColumn column, std::string_view& text) {
    const std::size_t tab = rest_.find('\t');
    if (column == kLastTraceColumn) return take_last(tab, text);
    if (tab == std::string_view::npos) return end_;
    text = rest_.substr(0, tab);
    rest_.remove_prefix(tab + 1);
    return {};
  }

  Flaw take(TraceColumn /*column*/, unsigned char& byte) {
    if (rest_.size() < 2) return end_;
    if (rest_[1] != '\t') return TraceFlaw::kNotOneByte;
    byte = static_cast<unsigned char>(rest_[0]);
    rest_.remove_prefix(2);
    return {};
  }

  Flaw take(TraceColumn column, std::integral auto& number) {
    std::string_view text;
    const Flaw flaw = take(column, text);
    return flaw ? flaw : read_number(text, number, 10);
  }

  /** Where addresses may have no digits at all, null has none. */
  Flaw take(TraceColumn column, TraceAddress& address) {
    std::string_view text;
    std::uint64_t number = 0;
    Flaw flaw = take(column, text);
    if (!flaw && !text.empty()) flaw = read_number(text, number, 16);
    address = TraceAddress{number};
    return flaw;
  }

 private:
  Flaw take_last(std::size_t tab, std::string_view& text) const {
    if (tab != std::string_view::npos) return TraceFlaw::kMoreColumns;
    if (end_ == TraceFlaw::kFileEnds) return end_;
    text = rest_;
    return {};
  }

  std::string_view rest_;
  TraceFlaw end_ = TraceFlaw::kFileEnds;  // what it is when no tab follows
};

template <std::size_t... columns>
Flaw read_fields(Columns line, TraceRow& row, TraceColumn& column,
                 std::index_sequence<columns...> /*all*/) {
  Flaw flaw;
  const auto take = [&line, &column, &flaw](TraceColumn next, auto& field) {
    column = next;
    flaw = line.take(next, field);
    return !flaw;
  };
  (void)(take(TraceColumn{columns}, row.*std::get<columns>(kTraceFields)) && ...);
  return flaw;
}

/** The result is the flaw of `column`, if there is one. */
Flaw read_row(std::string_view line, TraceRow& row, TraceColumn& column) {
  return read_fields(Columns(line), row, column, std::make_index_sequence<kTraceHeadings.size()>());
}

/** The same for the first line. */
Flaw read_headings(std::string_view line, TraceColumn& column) {
  Columns headings(line);
  for (std::size_t i = 0; i < kTraceHeadings.size(); ++i) {
    column = static_cast<TraceColumn>(i);
    std::string_view heading;
    if (const Flaw flaw = headings.take(column, heading)) return flaw;
    if (heading != heading_of(column)) return TraceFlaw::kOtherHeading;
  }
  return {};
}

std::string_view words_for(TraceFlaw flaw) {
  switch (flaw) {
    case TraceFlaw::kNotANumber:
      return "not a number";
    case TraceFlaw::kOutOfRange:
      return "number out of range";
    case TraceFlaw::kNotOneByte:
      return "not one byte";
    case TraceFlaw::kOtherHeading:
      return "not this heading";
    case TraceFlaw::kRowEnds:
      return "the row ends here";
    case TraceFlaw::kFileEnds:
      return "the file ends here";
    case TraceFlaw::kMoreColumns:
      return "more behind the last column";
  }
  return "";
}

}  // namespace

std::string message_of(const TraceFault& fault) {
  std::string message = "line " + std::to_string(fault.line);
  message += ", column " + std::to_string(number_of(fault.column));
  message.append(" (").append(heading_of(fault.column)).append("): ");
  return message.append(words_for(fault.flaw));
}

TraceRowEnds::Found TraceRowEnds::find(std::string_view piece) noexcept {
  std::size_t at = 0;
  while (place_ != Place::kBehindType && at < piece.size()) {
    const char c = piece[at];
    if (place_ == Place::kBehindNewline && c != '\t') return end_at(at);
    ++at;
    if (c == '\n') ++newlines_;
    if (c == '\n' && place_ != Place::kAtType) return end_at(at);
    place_ = behind(c);
  }
  const std::size_t newline = piece.find('\n', at);
  if (newline == std::string_view::npos) return {piece.size(), false};
  ++newlines_;
  return end_at(newline + 1);
}

TraceRowEnds::Place TraceRowEnds::behind(char c) const noexcept {
  switch (place_) {
    case Place::kInSequence:
      return c == '\t' ? Place::kInHandle : place_;
    case Place::kInHandle:
      return c == '\t' ? Place::kAtType : place_;
    case Place::kAtType:
      return c == '\n' ? Place::kBehindNewline : Place::kBehindType;
    case Place::kBehindNewline:
    case Place::kBehindType:
      break;
  }
  return Place::kBehindType;
}

TraceRowEnds::Found TraceRowEnds::end_at(std::size_t bytes) noexcept {
  place_ = Place::kInSequence;
  return {bytes, true};
}

TraceReader::Answer TraceReader::next() {
  while (const auto line = next_line()) {
    const bool headings = std::exchange(at_headings_, false);
    fault_.line = std::exchange(line_, ends_.newlines() + 1);
    const Flaw flaw =
        headings ? read_headings(*line, fault_.column) : read_row(*line, row_, fault_.column);
    if (flaw) {
      fault_.flaw = *flaw;
      return Answer::kBroken;
    }
    if (!headings) return Answer::kRow;
  }
  return finished_ ? Answer::kEnd : Answer::kNeedsMore;
}

/** The next line that is complete; none if the bytes were used up before. */
std::optional<std::string_view> TraceReader::next_line() {
  if (!carries_) carried_.clear();
  const auto [count, ends] = ends_.find(bytes_);
  const std::string_view part = bytes_.substr(0, count);
  bytes_.remove_prefix(count);
  if (ends && !carries_) return part;
  carried_ += part;
  carries_ = !ends && !carried_.empty();
  if (ends) return carried_;
  return finished_ ? line_without_end() : std::nullopt;
}

/** What the end of the file leaves; of a file without bytes that is the line of headings. */
std::optional<std::string_view> TraceReader::line_without_end() {
  if (!carries_ && !at_headings_) return std::nullopt;
  carries_ = false;
  return carried_;
}

}  // namespace qk::mem
