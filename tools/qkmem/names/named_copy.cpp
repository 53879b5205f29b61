#include "names/named_copy.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>

#include "formats/little_endian.h"
#include "formats/recording_frame.h"
#include "formats/recording_reader.h"
#include "input/bytes.h"
#include "input/definitions.h"
#include "input/input.h"
#include "input/storage.h"
#include "names/symbolizer.h"
#include "output/file.h"

namespace qk::command {
namespace {

using mem::recording::Chunk;
using mem::recording::ChunkHeader;
using mem::recording::ChunkKind;
using mem::recording::ChunkReader;
using mem::recording::FieldCount;
using mem::recording::FieldWriter;
using mem::recording::FrameRecord;
using mem::recording::kHeaderBytes;
using mem::recording::RecordType;
using mem::recording::TailReader;

/** Collects frames in the contents of chunks. */
class FrameChunks {
 public:
  void add(const FrameRecord& frame) {
    FieldCount count;
    frame.write(count);
    const std::size_t most = 2 * mem::kLongestVarint + count.size();
    if (contents_.empty() ||
        contents_.back().size() + most > mem::recording::kChunkBytes - kHeaderBytes) {
      contents_.emplace_back();
    }
    std::string record(most, '\0');
    FieldWriter writer(record.data());
    writer.number(static_cast<std::uint64_t>(RecordType::kFrame));
    writer.number(count.size());
    frame.write(writer);
    contents_.back().append(record.data(), writer.end());
  }

  [[nodiscard]] const std::vector<std::string>& contents() const { return contents_; }

 private:
  std::vector<std::string> contents_;
};

/** A copy of a recording with chunks of its own behind the opening one. */
class Copy {
 public:
  Copy(NewFile& to, const FrameChunks& frames) : to_(to), frames_(frames) {}

  void add(const Chunk& chunk) {
    if (!has_frames_ && chunk.header.kind != ChunkKind::kOpening) add_frames(chunk.header);
    ChunkHeader header = chunk.header;
    // What was dropped is told by its header alone, which has no index.
    if (header.thread == 0 && !header.is_dropped()) header.index += shift_;
    write(header, header.is_dropped() ? std::string_view() : chunk.contents);
    if (!has_frames_) add_frames(chunk.header);
  }

  /** A tail that goes with the copy. */
  [[nodiscard]] std::string tail(std::string tail) const {
    TailReader slots(tail);
    while (const auto chunk = slots.next()) {
      if (chunk->header.thread != 0) continue;
      const auto contents_at = static_cast<std::size_t>(chunk->contents.data() - tail.data());
      mem::write_little(tail.data() + contents_at - kHeaderBytes + mem::recording::kIndexAt,
                        chunk->header.index + shift_);
    }
    return tail;
  }

 private:
  /** Next to a chunk: behind the opening one, or in front of any other one. */
  void add_frames(const ChunkHeader& at) {
    has_frames_ = true;
    ChunkHeader header;
    header.kind = ChunkKind::kDefinitions;
    header.begin = header.end = at.begin;
    if (at.kind == ChunkKind::kOpening) header.index = at.index + 1;
    for (const std::string& contents : frames_.contents()) {
      write(header, contents);
      ++header.index;
      ++shift_;
    }
  }

  void write(ChunkHeader header, std::string_view contents) {
    header.bytes = static_cast<std::uint32_t>(kHeaderBytes + contents.size());
    chunk_.resize(kHeaderBytes);
    mem::recording::encode_header(header, chunk_.data());
    chunk_ += contents;
    mem::recording::seal(chunk_.data(), chunk_.size());
    to_.write(chunk_);
  }

  NewFile& to_;
  const FrameChunks& frames_;
  bool has_frames_ = false;
  std::uint32_t shift_ = 0;  // of the indexes of thread 0
  std::string chunk_;
};

void take_records(const Chunk& chunk, Definitions& definitions) {
  if (chunk.header.kind == ChunkKind::kEvents || chunk.header.is_dropped()) return;
  mem::recording::RecordReader records(chunk);
  while (const auto record = records.next()) static_cast<void>(definitions.take(*record));
}

/** What a recording says of its program. */
void read_program(std::string_view recording, std::string_view tail, Ledger& ledger) {
  Definitions definitions(ledger, false);
  ChunkReader chunks(recording);
  while (const auto chunk = chunks.next()) take_records(*chunk, definitions);
  TailReader slots(tail);
  while (const auto chunk = slots.next()) take_records(*chunk, definitions);
}

std::set<std::uint64_t> addresses_of(const Program& program) {
  std::set<std::uint64_t> addresses;
  for (const auto& stack : program.stacks) addresses.insert(stack.begin(), stack.end());
  return addresses;
}

bool is_named(const std::vector<qk::Frame>& calls) {
  return std::any_of(calls.begin(), calls.end(),
                     [](const qk::Frame& call) { return !call.function.empty(); });
}

/** The frames that the recording doesn't have yet. */
FrameChunks frames_of(const Program& program, NamedCopy& result) {
  FrameChunks frames;
  Symbolizer symbolizer(program);
  for (const std::uint64_t address : addresses_of(program)) {
    const std::vector<qk::Frame> calls = symbolizer.calls_at(address);
    ++result.addresses;
    if (!is_named(calls)) continue;
    ++result.named;
    if (program.names.contains(address)) continue;
    for (std::size_t depth = 0; depth < calls.size(); ++depth) {
      const qk::Frame& call = calls[depth];
      frames.add({address, depth, call.function, call.file, static_cast<std::uint64_t>(call.line)});
    }
  }
  result.remarks = symbolizer.remarks();
  return frames;
}

/** A tail of an earlier recording must not stand beside the copy. */
void write_tail(const std::string& name, const std::string& tail) {
  if (tail.empty()) {
    unlink(name.c_str());
  } else {
    write_file(name, tail, true);
  }
}

}  // namespace

NamedCopy write_named_copy(const std::string& input, const std::string& output,
                           bool may_overwrite) {
  const std::string tail = input == "-" ? std::string() : whole_file(input + ".tail");
  std::unique_ptr<Bytes> bytes = open_bytes(input);
  if (!bytes->start().starts_with(mem::recording::kMagic)) {
    throw InputError("a trace file has no stacks; a recording has");
  }
  refuse_existing(output + ".tail", may_overwrite);
  Storage storage(std::move(bytes));
  const std::string_view recording = storage.mapped();
  Ledger ledger{Selection{}};
  read_program(recording, tail, ledger);
  NamedCopy result;
  const FrameChunks frames = frames_of(ledger.program(), result);
  NewFile file(output, may_overwrite);
  Copy copy(file, frames);
  ChunkReader chunks(recording);
  while (const auto chunk = chunks.next()) copy.add(*chunk);
  file.finish();
  write_tail(output + ".tail", copy.tail(tail));
  if (chunks.skipped() != 0) {
    result.remarks.push_back(std::to_string(chunks.skipped()) +
                             " bytes that are no chunk are left out: see qkmem check");
  }
  return result;
}

}  // namespace qk::command
