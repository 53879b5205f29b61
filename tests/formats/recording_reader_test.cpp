#include "formats/recording_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "formats/recording_frame.h"

namespace {

using namespace qk::mem::recording;

std::string chunk_of(ChunkHeader header, const std::string& contents) {
  header.bytes = static_cast<std::uint32_t>(kHeaderBytes + contents.size());
  std::string chunk(kHeaderBytes, '\0');
  encode_header(header, chunk.data());
  chunk += contents;
  seal(chunk.data(), chunk.size());
  return chunk;
}

ChunkHeader header_of_events() {
  ChunkHeader header;
  header.kind = ChunkKind::kEvents;
  header.thread = 3;
  header.index = 7;
  header.first_number = 11;
  header.begin = {1000, 5};
  return header;
}

/** Events as text, "?" at bytes that make no sense. */
std::string events_in(const Chunk& chunk) {
  EventReader reader(chunk);
  std::string text;
  while (const auto event = reader.next()) {
    text += "k" + std::to_string(static_cast<int>(event->kind)) + " #" +
            std::to_string(event->number) + " t" + std::to_string(event->ticks) + " of #" +
            std::to_string(event->made) + " s" + std::to_string(event->block.site) + " p" +
            std::to_string(event->block.pool) + " @" + std::to_string(event->block.address) + " " +
            std::to_string(event->block.bytes) + " B" + (event->is_unsure ? " unsure" : "") +
            (event->replaces ? " replaces" : "") + "\n";
  }
  return text + (reader.has_failed() ? "?" : "");
}

std::string some_events() {
  char bytes[8 * kLongestEvent];
  EventState state;
  state.number = 10;
  state.ticks = 1000;
  char* to = bytes;
  const auto add = [&](EventKind kind, std::uint64_t number, std::uint64_t ticks, auto write) {
    EventEncoder encoder(state, to);
    encoder.begin(static_cast<std::uint8_t>(kind), number, ticks);
    write(encoder);
    to = encoder.finish();
  };
  add(EventKind::kMade, 11, 1001, [](auto& e) { e.made({4, 0, 0x7000, 100}, false); });
  add(EventKind::kMade, 12, 1001, [](auto& e) { e.made({4, 0, 0x6FF0, 100}, false); });
  add(EventKind::kMade, 20, 900, [](auto& e) { e.made({0, 2, 0x6FF1, UINT64_MAX}, true); });
  add(EventKind::kGone, 15, 1005, [](auto& e) { e.which(4); });
  add(EventKind::kSetAside, 16, 1005, [](auto& e) {
    e.which(16);
    e.unsure({0, 9, 8, 7});
  });
  add(EventKind::kCleared, 17, 1005, [](auto& e) { e.pool(2); });
  return {bytes, to};
}

TEST(RecordingReader, ReadsWhatWasEncoded) {
  const std::string bytes = chunk_of(header_of_events(), some_events());
  ChunkReader reader(bytes);
  const auto chunk = reader.next();
  ASSERT_TRUE(chunk);
  EXPECT_EQ(3U, chunk->header.thread);
  EXPECT_EQ(7U, chunk->header.index);
  EXPECT_EQ(
      "k0 #11 t1001 of #11 s4 p0 @28672 100 B\n"
      "k0 #12 t1001 of #12 s4 p0 @28656 100 B\n"
      "k0 #20 t1001 of #20 s0 p2 @28657 18446744073709551615 B replaces\n"
      "k1 #15 t1005 of #11 s0 p0 @0 0 B\n"
      "k2 #16 t1005 of #0 s0 p9 @8 7 B unsure\n"
      "k4 #17 t1005 of #0 s0 p2 @0 0 B\n",
      events_in(*chunk));
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(0U, reader.skipped());
}

TEST(RecordingReader, GoesOnAtTheNextChunkWhoseSumIsRight) {
  const std::string good = chunk_of(header_of_events(), some_events());
  std::string bad = good;
  bad[100] ^= 1;
  const std::string bytes = "qkmchun" + bad + good + "qkmchunk";
  ChunkReader reader(bytes);
  ASSERT_TRUE(reader.next());
  EXPECT_EQ(7 + good.size(), reader.position());
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(7 + good.size() + 8, reader.skipped());
}

TEST(RecordingReader, ReadsTheUsedPartOfASlot) {
  std::string slot = chunk_of(header_of_events(), some_events());
  slot.resize(kChunkBytes);
  qk::mem::write_little<std::uint32_t>(slot.data() + kUsedLengthAt, kHeaderBytes + 8);
  const std::string bytes = std::string(kChunkBytes, '\0') + slot;
  TailReader reader(bytes);
  const auto chunk = reader.next();
  ASSERT_TRUE(chunk);
  EXPECT_EQ(8U, chunk->contents.size());
  EXPECT_FALSE(reader.next());
}

TEST(RecordingReader, ReadsAnyBytes) {
  std::minstd_rand random(1);
  for (int i = 0; i < 20'000; ++i) {
    std::string contents = some_events();
    for (std::size_t at = random() % 40; at < contents.size(); at += random() % 40 + 1) {
      contents[at] = static_cast<char>(random());
    }
    contents.resize(random() % (contents.size() + 1));
    const std::string bytes = chunk_of(header_of_events(), contents);
    ChunkReader reader(bytes);
    const auto chunk = reader.next();
    ASSERT_TRUE(chunk);
    static_cast<void>(events_in(*chunk));
    RecordReader records(*chunk);
    while (auto record = records.next()) {
      while (!record->fields.is_at_end()) static_cast<void>(record->fields.text());
    }
    std::string damaged = bytes;
    damaged[random() % damaged.size()] ^= static_cast<char>(1 + random() % 255);
    ChunkReader other(damaged);
    while (other.next()) {
    }
    TailReader slots(damaged);
    while (slots.next()) {
    }
  }
}

std::string fields_of(const FrameRecord& frame) {
  FieldCount count;
  frame.write(count);
  std::string fields(count.size(), '\0');
  FieldWriter writer(fields.data());
  frame.write(writer);
  return fields;
}

TEST(FrameRecord, IsReadAsItWasWritten) {
  const std::string fields = fields_of({0xFFFF'FFFF'FFFF'1234, 2, "net::parse(int)", "net.c", 12});
  FieldReader reader(fields);
  const FrameRecord frame = FrameRecord::read(reader);
  EXPECT_TRUE(reader.is_at_end());
  EXPECT_FALSE(reader.has_failed());
  EXPECT_EQ(0xFFFF'FFFF'FFFF'1234, frame.address);
  EXPECT_EQ(2U, frame.depth);
  EXPECT_EQ("net::parse(int)", frame.function);
  EXPECT_EQ("net.c", frame.file);
  EXPECT_EQ(12U, frame.line);
}

TEST(FrameRecord, FitsInAChunkHoweverLongTheNameIs) {
  const std::string name(100'000, 'x');
  const std::string fields = fields_of({1, 0, name, name, 1});
  FieldReader reader(fields);
  EXPECT_EQ(name.substr(0, kLongestText), FrameRecord::read(reader).function);
  EXPECT_FALSE(reader.has_failed());
  EXPECT_LT(fields.size(), kChunkBytes - kHeaderBytes);
}

}  // namespace
