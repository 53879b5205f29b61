#include "input/reading.h"

#include <vector>

#include "formats/recording.h"
#include "input/bytes.h"
#include "input/made_ahead.h"
#include "input/profile.h"
#include "input/recording.h"
#include "input/storage.h"
#include "input/table.h"
#include "input/table_rows.h"

namespace qk::command {
namespace {

Check read_table(const std::string& name, Bytes& bytes, const Reader& reader) {
  TableInput table(reader, name);
  TableRowReader rows(bytes);
  MadeAhead<TableRows> pieces([&rows](TableRows& piece) { return rows.read(piece); },
                              [&bytes] { bytes.interrupt(); });
  const std::uint64_t size = bytes.size();
  while (const TableRows* const piece = pieces.next()) {
    if (!table.take(*piece)) break;
    if (reader.progress) reader.progress(piece->position(), size);
  }
  return table.finish();
}

Check read_recording(std::unique_ptr<Bytes> bytes, std::string tail, const Reader& reader) {
  const Storage storage(std::move(bytes));
  return RecordingInput(reader, storage, std::move(tail)).read();
}

std::string all_of(Bytes& bytes) {
  std::string text;
  std::vector<char> piece(kPieceBytes);
  while (const std::size_t count = bytes.read(piece)) text.append(piece.data(), count);
  return text;
}

InputKind kind_of(std::string_view start) {
  if (start.starts_with(mem::recording::kMagic)) return InputKind::kRecording;
  return begins_profile(start) ? InputKind::kProfile : InputKind::kTable;
}

}  // namespace

InputFacts read_input(const std::string& name, const Reader& reader) {
  // If the program still runs, what goes from the tail to the recording must be in one of them.
  std::string tail = name == "-" ? std::string() : whole_file(name + ".tail");
  std::unique_ptr<Bytes> bytes = open_bytes(name);
  const InputKind kind = kind_of(bytes->start());
  if (reader.on_kind) reader.on_kind(kind);
  switch (kind) {
    case InputKind::kRecording:
      return {kind, read_recording(std::move(bytes), std::move(tail), reader), {}};
    case InputKind::kProfile:
      return {kind, {}, read_profile(all_of(*bytes), name, reader.ledger)};
    case InputKind::kTable:
      break;
  }
  return {kind, read_table(name, *bytes, reader), {}};
}

}  // namespace qk::command
