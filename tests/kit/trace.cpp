#include "tests/kit/trace.h"

#include <ostream>

namespace qk::mem {

void PrintTo(const TraceRow& row, std::ostream* out) {
  qk::Line line;
  put_trace_row(row, 1, line);
  *out << line.finish();
}

}  // namespace qk::mem

namespace kit {

using qk::mem::TraceReader;

Trace::Trace(std::string_view text, std::size_t piece) {
  TraceReader reader;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, piece);
    text.remove_prefix(part.size());
    reader.feed(part);
    take_all(reader);
  }
  reader.finish();
  take_all(reader);
}

void Trace::take_all(TraceReader& reader) {
  for (;;) {
    switch (reader.next()) {
      case TraceReader::Answer::kRow:
        rows.push_back(reader.row());
        rows.back().file = *files_.emplace(reader.row().file).first;
        break;
      case TraceReader::Answer::kBroken:
        faults.push_back(message_of(reader.error()));
        break;
      case TraceReader::Answer::kNeedsMore:
      case TraceReader::Answer::kEnd:
        return;
    }
  }
}

}  // namespace kit
