#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "formats/recording.h"
#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::qkmem;
using kit::Scene;
using kit::write_file;

/** A recording of some chunks, with several handles, sites, clears and failing reallocs. */
std::string some_recording() {
  const kit::Ended ended = kit::run({"", "", "", "RECORD=r.qkm STACKS=4 REPORT=/dev/null"}, [] {
    const kit::Pool first;
    const kit::Pool second("BLOCKMGMT=4096", "AB");
    std::minstd_rand random(7);
    std::vector<void*> blocks;
    for (int i = 0; i < 20'000; ++i) {
      const int line = static_cast<int>(random() % 100);
      blocks.push_back(qk_mem_imalloc(first, random() % 500, 16, "a.c", line));
      qk_mem_imalloc(second, random() % 50 + 1, 16, "b.c", line);
      if (i % 1000 == 999) qk_mem_iclear_handle(second, "b.c", 1);
      void*& block = blocks[random() % blocks.size()];
      block = qk_mem_irealloc(first, block, random() % 900 + 1, 16, "a.c", line);
    }
  });
  EXPECT_EQ(0, ended.exit_code);
  return contents("r.qkm");
}

/** The bytes of each chunk. */
std::vector<std::string> chunks_of(const std::string& recording) {
  std::vector<std::string> chunks;
  for (std::size_t at = 0; at < recording.size();) {
    const auto header = qk::mem::recording::decode_header(recording.data() + at);
    chunks.push_back(recording.substr(at, header.bytes));
    at += header.bytes;
  }
  return chunks;
}

std::string joined(const std::vector<std::string>& chunks) {
  std::string joined;
  for (const std::string& chunk : chunks) joined += chunk;
  return joined;
}

/** What `check` says of an input. It must end by itself, and need no more memory than usual. */
kit::Ran checked(std::string_view input) {
  write_file("x", input);
  kit::Ran ran = qkmem({"check", "x"});
  EXPECT_LE(ran.status, 2) << ran.err;
  return ran;
}

TEST(DamagedRecording, KeepsWhatIsWholeIfItIsCutOff) {
  const Scene scene;
  const std::string recording = some_recording();
  const std::string text = checked(recording.substr(0, recording.size() * 3 / 4)).out;
  EXPECT_NE(std::string::npos, text.find("it breaks off behind event ")) << text;
  EXPECT_NE(std::string::npos, text.find("damaged chunks of events")) << text;
}

/** Chunks of events that come one behind the other. */
bool is_of_events(const std::string& chunk) {
  return qk::mem::recording::decode_header(chunk.data()).kind ==
         qk::mem::recording::ChunkKind::kEvents;
}

std::string complete_up_to(const std::string& chunk) {
  const auto header = qk::mem::recording::decode_header(chunk.data());
  return "\"complete_up_to_event\":" + std::to_string(header.highest_number) + ",\n";
}

TEST(DamagedRecording, SaysUpToWhichEventNothingIsMissing) {
  const Scene scene;
  const std::vector<std::string> whole = chunks_of(some_recording());
  const auto first = std::find_if(whole.begin(), whole.end(), &is_of_events);
  const auto second = std::find_if(first + 1, whole.end(), &is_of_events);
  const auto third = std::find_if(second + 1, whole.end(), &is_of_events);
  ASSERT_NE(whole.end(), third);
  const auto second_number = static_cast<std::size_t>(second - whole.begin());
  const auto answer = [](const std::vector<std::string>& chunks) {
    write_file("x", joined(chunks));
    return qkmem({"check", "--json", "x"}).out;
  };
  EXPECT_EQ(std::string::npos, answer(whole).find("complete_up_to_event"));

  std::vector<std::string> without = whole;
  without.erase(without.begin() + static_cast<std::ptrdiff_t>(second_number));
  EXPECT_NE(std::string::npos, answer(without).find(complete_up_to(*first))) << answer(without);

  std::vector<std::string> with_other_bytes = whole;
  with_other_bytes[second_number].back() ^= 1;
  EXPECT_NE(std::string::npos, answer(with_other_bytes).find(complete_up_to(*first)));

  // Of the thread's last chunk no later one tells that it is missing.
  std::vector<std::string> with_other_end(whole.begin(), third);
  with_other_end[second_number].front() ^= 1;
  EXPECT_NE(std::string::npos, answer(with_other_end).find(complete_up_to(*first)));

  std::vector<std::string> without_first = whole;
  without_first.erase(without_first.begin() + (first - whole.begin()));
  write_file("x", joined(without_first));
  EXPECT_NE(std::string::npos,
            qkmem({"check", "x"}).out.find("\nevents are missing from the beginning on\n"));
}

TEST(DamagedRecording, NamesTheChunkThatIsMissing) {
  const Scene scene;
  std::vector<std::string> chunks = chunks_of(some_recording());
  ASSERT_LT(5U, chunks.size());
  chunks.erase(chunks.begin() + 3);
  const std::string text = checked(joined(chunks)).out;
  EXPECT_NE(std::string::npos, text.find("not whole\n")) << text;
  EXPECT_NE(std::string::npos, text.find("chunks that are missing")) << text;
}

TEST(DamagedRecording, ReadsChunksInAnyOrder) {
  const Scene scene;
  std::vector<std::string> chunks = chunks_of(some_recording());
  const std::string right = checked(joined(chunks)).out;
  // The first one opens the recording.
  std::shuffle(chunks.begin() + 1, chunks.end(), std::minstd_rand(1));
  EXPECT_EQ(right, checked(joined(chunks)).out);
}

TEST(DamagedRecording, FindsTheNextChunkBehindForeignBytes) {
  const Scene scene;
  std::vector<std::string> chunks = chunks_of(some_recording());
  chunks.insert(chunks.begin() + 2, "foreign bytes, and qkmchunk among them");
  const std::string text = checked(joined(chunks)).out;
  EXPECT_NE(std::string::npos, text.find("        38  bytes that belong to no chunk")) << text;
  EXPECT_EQ(std::string::npos, text.find("missing")) << text;
}

TEST(DamagedRecording, OfFalseBeginningsOnlyHasNoEvents) {
  const Scene scene;
  std::string input;
  while (input.size() < (std::size_t{1} << 16)) input += qk::mem::recording::kMagic;
  const kit::Ran ran = checked(input);
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("qkmem: there are no events in x\n", ran.err);
}

TEST(DamagedRecording, OfAnyBytesEndsInWords) {
  const Scene scene;
  const std::string recording = some_recording();
  std::minstd_rand random(3);
  for (int i = 0; i < 60; ++i) {
    std::string damaged = recording;
    for (auto places = random() % 20 + 1; places != 0; --places) {
      damaged[random() % damaged.size()] = static_cast<char>(random());
    }
    if (i % 3 == 0) damaged.resize(random() % damaged.size());
    checked(damaged);
  }
}

/** Chunks whose contents make no sense, but whose sum is right. */
TEST(DamagedRecording, WithRightSumsEndsInWords) {
  const Scene scene;
  const std::vector<std::string> chunks = chunks_of(some_recording());
  std::minstd_rand random(5);
  for (int i = 0; i < 100; ++i) {
    std::vector<std::string> damaged = chunks;
    std::string& chunk = damaged[random() % damaged.size()];
    for (auto places = random() % 8 + 1; places != 0; --places) {
      // Not the length, which leads to the next chunk.
      const std::size_t from = 24;
      chunk[from + random() % (chunk.size() - from)] = static_cast<char>(random());
    }
    qk::mem::recording::seal(chunk.data(), chunk.size());
    checked(joined(damaged));
  }
}

TEST(DamagedTable, NamesTheFirstRowThatCannotBeRead) {
  const Scene scene;
  std::string table = kit::table_of({"1 3 N 0 0 0 0 main.c 10", "2 3 M 1000 1 9 9 a.c 7"});
  table += "3\t3\tM\tnonsense\n4\t3\tF";
  EXPECT_EQ(
      "x: 2 events, 1 handle, 1 site\n"
      "not whole\n"
      "\n"
      "  how many  what                     the first\n"
      "         2  rows that can't be read  line 4, column 4 (Address): the row ends here\n",
      checked(table).out);
}

TEST(DamagedTable, TellsRowsThatCannotBe) {
  const Scene scene;
  EXPECT_EQ(
      "x: 4 events, 1 handle, 1 site\n"
      "not whole\n"
      "\n"
      "  how many  what                                  the first\n"
      "         1  releases of memory that was not live  line 4\n"
      "         1  allocations where a block was live    line 5\n"
      "\n"
      "handles with other sums\n"
      "  counted  the input says  of          handle\n"
      "        9              18  live bytes  3 made at main.c:10\n",
      checked(kit::table_of({"1 3 N 0 0 0 0 main.c 10", "2 3 M 1000 1 9 9 a.c 7",
                             "3 3 F 2000 1 9 9 a.c 8", "4 3 M 1000 1 9 18 a.c 7"}))
          .out);
}

TEST(DamagedTable, OfAnyBytesEndsInWords) {
  const Scene scene;
  kit::write_small_table();
  const std::string table = contents("t.tdf");
  std::minstd_rand random(9);
  for (int i = 0; i < 60; ++i) {
    std::string damaged = table;
    for (auto places = random() % 10 + 1; places != 0; --places) {
      damaged[random() % damaged.size()] = static_cast<char>(random());
    }
    checked(damaged);
  }
}

}  // namespace
