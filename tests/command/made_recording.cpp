#include "tests/command/made_recording.h"

#include "formats/recording_event.h"
#include "formats/recording_frame.h"
#include "tests/command/command.h"
#include "tests/kit/made_chunks.h"

namespace kit {

using namespace qk::mem::recording;

MadeRecording::MadeRecording() {
  append_record(definitions_, RecordType::kPool, [tag = text("NT")](auto& fields) {
    fields.number(1);
    fields.number(3);
    fields.number(tag);
  });
}

void MadeRecording::started(std::uint64_t nanoseconds, const std::string& command) {
  append_record(definitions_, RecordType::kProcess, [&](auto& fields) {
    fields.number(1);
    fields.number(nanoseconds);
    fields.text("/bin/net");
    fields.text(command);
    fields.number(0);
  });
}

void MadeRecording::module(const std::string& path, const std::string& build_id,
                           std::uint64_t begin, std::uint64_t end) {
  append_record(definitions_, RecordType::kModule, [&](auto& fields) {
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
  append_record(definitions_, RecordType::kFrame, [&](auto& fields) { frame.write(fields); });
}

std::uint32_t MadeRecording::site(const std::string& path, std::uint64_t line,
                                  const std::vector<std::uint64_t>& addresses) {
  if (!addresses.empty()) {
    append_record(definitions_, RecordType::kStack, [&, number = ++stacks_](auto& fields) {
      fields.number(number);
      fields.number(addresses.size());
      std::uint64_t before = 0;
      for (const std::uint64_t address : addresses) {
        fields.signed_number(static_cast<std::int64_t>(address - before));
        before = address;
      }
    });
  }
  append_record(definitions_, RecordType::kSite,
                [&, number = ++sites_, of_path = text(path)](auto& fields) {
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
  write_file(name, made_chunk(opening, "") + made_chunk(definitions, definitions_) +
                       made_chunk(header, events));
}

std::uint64_t MadeRecording::text(const std::string& text) {
  append_record(definitions_, RecordType::kText, [&, number = ++texts_](auto& fields) {
    fields.number(number);
    fields.text(text);
  });
  return texts_;
}

}  // namespace kit
