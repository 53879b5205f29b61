#include "formats/trace_row.h"

#include <concepts>
#include <utility>

namespace qk::mem {
namespace {

class RowWriter {
 public:
  RowWriter(qk::Line& line, int address_digits) : line_(line), address_digits_(address_digits) {}

  template <class Field>
  void put(TraceColumn column, Field field) {
    put(field);
    line_.put(end_of(column));
  }

 private:
  void put(unsigned char byte) { line_.put(static_cast<char>(byte)); }
  void put(std::string_view text) { line_.put(text); }
  void put(TraceAddress address) {
    line_.hex(static_cast<std::uint64_t>(address), address_digits_);
  }
  void put(std::unsigned_integral auto number) { line_.number(number); }
  void put(std::signed_integral auto number) { line_.signed_number(number); }

  qk::Line& line_;
  int address_digits_;
};

template <std::size_t... columns>
void put_fields(const TraceRow& row, RowWriter writer, std::index_sequence<columns...> /*all*/) {
  (writer.put(TraceColumn{columns}, row.*std::get<columns>(kTraceFields)), ...);
}

}  // namespace

void put_trace_headings(qk::Line& line) noexcept {
  for (std::size_t i = 0; i < kTraceHeadings.size(); ++i) {
    line.put(kTraceHeadings[i]).put(end_of(static_cast<TraceColumn>(i)));
  }
}

void put_trace_row(const TraceRow& row, int address_digits, qk::Line& line) noexcept {
  put_fields(row, {line, address_digits}, std::make_index_sequence<kTraceHeadings.size()>());
}

}  // namespace qk::mem
