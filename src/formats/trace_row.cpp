#include "formats/trace_row.h"

#include <concepts>
#include <utility>

#include "support/shortcuts.h"

namespace qk::mem {
namespace {

/** Writes fields to a Line, or to a Cursor. */
template <class Text>
class RowWriter {
 public:
  RowWriter(Text& text, int address_digits) : text_(text), address_digits_(address_digits) {}

  template <class Field>
  [[gnu::always_inline]] void put(TraceColumn column, Field field) {
    put(field);
    text_.put(end_of(column));
  }

 private:
  [[gnu::always_inline]] void put(unsigned char byte) { text_.put(static_cast<char>(byte)); }
  [[gnu::always_inline]] void put(std::string_view text) { text_.put(text); }
  [[gnu::always_inline]] void put(TraceAddress address) {
    text_.hex(static_cast<std::uint64_t>(address), address_digits_);
  }
  [[gnu::always_inline]] void put(std::unsigned_integral auto number) { text_.number(number); }
  [[gnu::always_inline]] void put(std::signed_integral auto number) { text_.signed_number(number); }

  Text& text_;
  int address_digits_;
};

template <class Text, std::size_t... columns>
void put_fields(const TraceRow& row, RowWriter<Text> writer,
                std::index_sequence<columns...> /*all*/) {
  (writer.put(TraceColumn{columns}, row.*std::get<columns>(kTraceFields)), ...);
}

template <class Text>
void put_fields(const TraceRow& row, int address_digits, Text& text) {
  put_fields(row, RowWriter(text, address_digits),
             std::make_index_sequence<kTraceHeadings.size()>());
}

/** Bytes of the longest row whose address has no more digits than it needs, without the file. */
constexpr std::size_t kMostButFile = kTraceHeadings.size() * (qk::Cursor::kLongestNumber + 1);

}  // namespace

void put_trace_headings(qk::Line& line) noexcept {
  for (std::size_t i = 0; i < kTraceHeadings.size(); ++i) {
    line.put(kTraceHeadings[i]).put(end_of(static_cast<TraceColumn>(i)));
  }
}

void put_trace_row(const TraceRow& row, int address_digits, qk::Line& line) noexcept {
  const auto put_at_once = [&](qk::Cursor& cursor) { put_fields(row, address_digits, cursor); };
  if (qk::kShortcuts && address_digits <= qk::Cursor::kMostHexDigits &&
      line.append(kMostButFile + row.file.size(), put_at_once)) {
    return;
  }
  put_fields(row, address_digits, line);
}

}  // namespace qk::mem
