// The reader of trace files: the first byte is the size of the pieces, the rest is a file.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "formats/trace_reader.h"
#include "formats/trace_row.h"
#include "tests/fuzz/fuzzing.h"

namespace {

using qk::mem::TraceReader;
using qk::mem::TraceRow;

/** What was read: the rows as text, and the rows and the errors in the file in their order. */
struct Read {
  std::string rows;
  std::string rows_and_errors;

  bool operator==(const Read&) const = default;
};

/** Writes null without digits, so that no row gets longer than it was. */
std::string written(const TraceRow& row) {
  qk::Line line;
  put_trace_row(row, 0, line);
  return std::string(line.finish());
}

void take_all(TraceReader& reader, Read& read) {
  for (;;) {
    switch (reader.next()) {
      case TraceReader::Answer::kRow:
        read.rows += written(reader.row());
        read.rows_and_errors += written(reader.row());
        break;
      case TraceReader::Answer::kBroken:
        read.rows_and_errors += message_of(reader.error()) + "\n";
        break;
      case TraceReader::Answer::kNeedsMore:
      case TraceReader::Answer::kEnd:
        return;
    }
  }
}

/** Each piece is in memory of exactly its size, which is freed after reading. */
Read read_in_pieces(std::string_view text, std::size_t size) {
  Read read;
  TraceReader reader;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, size);
    text.remove_prefix(part.size());
    const auto piece = std::make_unique<char[]>(part.size());
    std::memcpy(piece.get(), part.data(), part.size());
    reader.feed({piece.get(), part.size()});
    take_all(reader, read);
  }
  reader.finish();
  take_all(reader, read);
  return read;
}

std::string headings() {
  qk::Line line;
  qk::mem::put_trace_headings(line);
  return std::string(line.finish());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Longer rows are cut when they are written.
  if (size == 0 || size > qk::Line::kCapacity) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Read read = read_in_pieces(text, text.size());
  fuzz::require(read_in_pieces(text, data[0] % 64 + 1U) == read, "pieces are read differently");
  fuzz::require(read_in_pieces(text, 1) == read, "single bytes are read differently");
  // Only of rows with enough behind them are several columns read at once.
  const std::string longer = std::string(text) + std::string(100, '1');
  fuzz::require(read_in_pieces(longer, longer.size()) == read_in_pieces(longer, 1),
                "rows with more behind them are read differently");
  const std::string again = headings() + read.rows;
  fuzz::require(read_in_pieces(again, again.size()) == Read{read.rows, read.rows},
                "written rows are read differently");
  return 0;
}
