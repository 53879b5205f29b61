#include "tests/command/made_recording.h"

#include "formats/recording_event.h"
#include "formats/recording_frame.h"
#include "tests/command/command.h"

namespace kit {

using namespace qk::mem::recording;

MadeRecording::MadeRecording() {
  record(RecordType::kPool, [tag = text("NT")](auto& fields) {
    fields.number(1);
    fields.number(3);
    fields.number(tag);
  });
}

void MadeRecording::started(std::uint64_t nanoseconds, const std::string& command) {
  record(RecordType::kProcess, [&](auto& fields) {
    fields.number(1);
    fields.number(nanoseconds);
    fields.text("/bin/net");
    fields.text(command);
    fields.number(0);
  });
}

void MadeRecording::module(const std::string& path, const std::string& build_id,
                           std::uint64_t begin, std::uint64_t end) {
  record(RecordType::kModule, [&](auto& fields) {
    fields.number(begin);
    fields.number(end);
    fields.number(begin);
    fields.text(path);
    fields.text(build_id);
  });
}

void MadeRecording::name(std::uint64_t address, std::uint64_t depth, const std::string& function,
                         const std::string& file, std::uint64_t line) {
  const FrameRecord frame = {address, depth, function, file, line};
  record(RecordType::kFrame, [&](auto& fields) { frame.write(fields); });
}

std::uint32_t MadeRecording::site(const std::string& path, std::uint64_t line,
                                  const std::vector<std::uint64_t>& addresses) {
  if (!addresses.empty()) {
    record(RecordType::kStack, [&, number = ++stacks_](auto& fields) {
      fields.number(number);
      fields.number(addresses.size());
      std::uint64_t before = 0;
      for (const std::uint64_t address : addresses) {
        fields.signed_number(static_cast<std::int64_t>(address - before));
        before = address;
      }
    });
  }
  record(RecordType::kSite, [&, number = ++sites_, of_path = text(path)](auto& fields) {
    fields.number(number);
    fields.number(1);
    fields.number(of_path);
    fields.number(line);
    fields.number(addresses.empty() ? 0 : stacks_);
    fields.number(0);
  });
  return sites_;
}

void MadeRecording::made(std::uint32_t site, std::uint64_t bytes) {
  blocks_.push_back({site, bytes});
}

void MadeRecording::write(const std::string& name) {
  std::string events(blocks_.size() * kLongestEvent, '\0');
  char* to = events.data();
  EventState state;
  std::uint64_t number = 0;
  for (const Block& block : blocks_) {
    EventEncoder encoder(state, to);
    ++number;
    encoder.begin(static_cast<std::uint8_t>(EventKind::kMade), number, number * 1000);
    encoder.made({block.site, 0, number * 4096, block.bytes}, false);
    to = encoder.finish();
  }
  events.resize(static_cast<std::size_t>(to - events.data()));
  ChunkHeader opening;
  opening.kind = ChunkKind::kOpening;
  ChunkHeader definitions = opening;
  definitions.kind = ChunkKind::kDefinitions;
  definitions.index = 1;
  ChunkHeader header;
  header.kind = ChunkKind::kEvents;
  header.thread = 1;
  header.events = number;
  header.first_number = 1;
  header.highest_number = number;
  header.end = {number * 1000, number * 1000};
  write_file(name, chunk(opening, "") + chunk(definitions, definitions_) + chunk(header, events));
}

template <class Write>
void MadeRecording::record(RecordType type, Write write) {
  FieldCount count;
  write(count);
  std::string bytes(2 * qk::mem::kLongestVarint + count.size(), '\0');
  FieldWriter writer(bytes.data());
  writer.number(static_cast<std::uint64_t>(type));
  writer.number(count.size());
  write(writer);
  definitions_.append(bytes.data(), writer.end());
}

std::uint64_t MadeRecording::text(const std::string& text) {
  record(RecordType::kText, [&, number = ++texts_](auto& fields) {
    fields.number(number);
    fields.text(text);
  });
  return texts_;
}

std::string MadeRecording::chunk(ChunkHeader header, const std::string& contents) {
  header.bytes = static_cast<std::uint32_t>(kHeaderBytes + contents.size());
  std::string chunk(kHeaderBytes, '\0');
  encode_header(header, chunk.data());
  chunk += contents;
  seal(chunk.data(), chunk.size());
  return chunk;
}

}  // namespace kit
