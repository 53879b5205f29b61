#include "input/reading.h"

#include <algorithm>

#include "formats/recording.h"
#include "input/bytes.h"
#include "input/profile.h"
#include "input/recording.h"
#include "input/storage.h"
#include "input/table.h"

namespace qk::command {
namespace {

Check read_table(const std::string& name, Bytes& bytes, std::string_view first,
                 const Reader& reader) {
  TableInput table(reader, name);
  for (std::string_view piece = first; !piece.empty(); piece = bytes.next()) {
    if (!table.feed(piece)) break;
    if (reader.progress) reader.progress(bytes.position(), bytes.size());
  }
  return table.finish();
}

Check read_recording(std::unique_ptr<Bytes> bytes, std::string_view first, std::string tail,
                     const Reader& reader) {
  const Storage storage(std::move(bytes), first);
  return RecordingInput(reader, storage, std::move(tail)).read();
}

std::string all_of(Bytes& bytes, std::string_view first) {
  std::string text;
  for (std::string_view piece = first; !piece.empty(); piece = bytes.next()) text += piece;
  return text;
}

InputKind kind_of(std::string_view first) {
  if (first.starts_with(mem::recording::kMagic)) return InputKind::kRecording;
  return begins_profile(first) ? InputKind::kProfile : InputKind::kTable;
}

}  // namespace

InputFacts read_input(const std::string& name, const Reader& reader) {
  // If the program still runs, what goes from the tail to the recording must be in one of them.
  std::string tail = name == "-" ? std::string() : whole_file(name + ".tail");
  std::unique_ptr<Bytes> bytes = open_bytes(name);
  const std::string_view first = bytes->next();
  const InputKind kind = kind_of(first);
  if (reader.on_kind) reader.on_kind(kind);
  switch (kind) {
    case InputKind::kRecording:
      return {kind, read_recording(std::move(bytes), first, std::move(tail), reader), {}};
    case InputKind::kProfile:
      return {kind, {}, read_profile(all_of(*bytes, first), name, reader.ledger)};
    case InputKind::kTable:
      break;
  }
  return {kind, read_table(name, *bytes, first, reader), {}};
}

}  // namespace qk::command
