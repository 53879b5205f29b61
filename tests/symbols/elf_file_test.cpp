#include "symbols/elf_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "support/page_arena.h"
#include "symbols/debug_info.h"
#include "symbols/libdw.h"
#include "tests/symbols/called.h"

namespace {

using namespace std::literals;

class ElfFileTest : public ::testing::Test {
 protected:
  ElfFileTest() : path_("/tmp/qkmem_elf_" + std::to_string(getpid())) {}
  ~ElfFileTest() override { std::remove(path_.c_str()); }

  void write(std::string_view bytes) {
    std::ofstream(path_, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }

  static std::string read(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /** Asks a file for all that it can tell, whatever that is. */
  void ask_all() {
    qk::PageArena arena;
    qk::ElfFile file;
    if (file.open(path_.c_str())) {
      (void)file.build_id();
      (void)file.section(".shstrtab");
      for (std::uint64_t address = 0; address < 0x4000; address += 64) {
        (void)file.function_at(address, arena);
        (void)file.symbol_at(address);
      }
      (void)file.function_at(UINT64_MAX, arena);
    }
    file.close();
    const qk::dwarf::Functions* const libdw = qk::dwarf::load();
    qk::DebugInfo debug_info;
    if (libdw == nullptr || !debug_info.open(path_.c_str(), *libdw, arena)) return;
    qk::SourceFrame frames[4];
    for (std::uint64_t address = 0; address < 0x4000; address += 64) {
      (void)debug_info.frames_at(address, frames, 4);
    }
    debug_info.close();
  }

  std::string path_;
  qk::PageArena arena_;
  qk::ElfFile file_;
};

using ElfFile = ElfFileTest;

TEST_F(ElfFile, HasABuildIdIfTheLinkerMadeOne) {
  ASSERT_TRUE(file_.open(called::kWithDebugInfo));
  EXPECT_EQ(file_.build_id().text(), called::kDebugId);
  file_.close();
  ASSERT_TRUE(file_.open(called::kWithSymbols));
  EXPECT_EQ(file_.build_id().text(), "");
  file_.close();
}

TEST_F(ElfFile, HasAllFunctionsUnlessItIsStripped) {
  ASSERT_TRUE(file_.open(called::kWithSymbols));
  EXPECT_TRUE(file_.has_all_functions());
  file_.close();
  ASSERT_TRUE(file_.open(called::kStripped));
  EXPECT_FALSE(file_.has_all_functions());
  file_.close();
}

TEST_F(ElfFile, HasTheBytesOfSectionsThatTakeRoomInTheFile) {
  ASSERT_TRUE(file_.open(called::kWithDebugInfo));
  EXPECT_TRUE(file_.section(".shstrtab").find(".shstrtab\0"sv) != std::string_view::npos);
  EXPECT_FALSE(file_.section(".debug_line").empty());
  EXPECT_EQ(file_.section(".debug_lin"), "");
  EXPECT_EQ(file_.section(""), "");
  file_.close();
  EXPECT_EQ(file_.section(".shstrtab"), "");
}

TEST_F(ElfFile, KnowsNothingOnceItIsClosed) {
  ASSERT_TRUE(file_.open(called::kWithDebugInfo));
  file_.close();
  EXPECT_FALSE(file_.is_open());
  EXPECT_EQ(file_.build_id().text(), "");
  EXPECT_EQ(file_.function_at(0x1200, arena_), "");
}

TEST_F(ElfFile, IsNoFolderNoTextAndNothing) {
  EXPECT_FALSE(file_.open("/"));
  EXPECT_FALSE(file_.open("/nonexistent"));
  EXPECT_FALSE(file_.open(""));
  write("");
  EXPECT_FALSE(file_.open(path_.c_str()));
  write(std::string(1000, 'x'));
  EXPECT_FALSE(file_.open(path_.c_str()));
}

TEST_F(ElfFile, HarmsNothingWhereverItIsCutOff) {
  const std::string whole = read(called::kWithDebugInfo);
  ASSERT_GT(whole.size(), 4000U);
  for (std::size_t length = 0; length < whole.size();
       length += length < 100 ? 1 : 1 + whole.size() / 97) {
    write(std::string_view(whole).substr(0, length));
    ask_all();
  }
}

TEST_F(ElfFile, HarmsNothingWithDamagedSections) {
  std::string bytes = read(called::kWithSymbols);
  std::uint64_t table = 0;
  bytes.copy(reinterpret_cast<char*>(&table), sizeof table, 0x28);  // where its sections are
  ASSERT_LT(table, bytes.size());
  for (std::size_t at = table; at < bytes.size(); at += 3) {
    const char before = bytes[at];
    for (const char damage : {'\x01', '\x7f', '\xff'}) {
      bytes[at] = damage;
      write(bytes);
      qk::PageArena arena;
      if (!file_.open(path_.c_str())) continue;
      (void)file_.build_id();
      for (std::uint64_t address = 0; address < 0x4000; address += 256) {
        (void)file_.function_at(address, arena);
      }
      file_.close();
    }
    bytes[at] = before;
  }
}

TEST_F(ElfFile, HasNoFunctionsOutsideOfItsCode) {
  ASSERT_TRUE(file_.open(called::kWithDebugInfo));
  EXPECT_EQ(file_.function_at(0, arena_), "");
  EXPECT_EQ(file_.function_at(UINT64_MAX, arena_), "");
  file_.close();
  const qk::dwarf::Functions* const libdw = qk::dwarf::load();
  if (libdw == nullptr) return;
  qk::DebugInfo debug_info;
  ASSERT_TRUE(debug_info.open(called::kWithDebugInfo, *libdw, arena_));
  qk::SourceFrame frame = {};
  EXPECT_EQ(debug_info.frames_at(0, &frame, 1), 0);
  EXPECT_EQ(debug_info.frames_at(UINT64_MAX, &frame, 1), 0);
  debug_info.close();
}

TEST(BuildId, IsFoundBehindOtherNotes) {
  const auto notes =
      "\x04\0\0\0\x05\0\0\0\x01\0\0\0GNU\0xxxxx\0\0\0"
      "\x05\0\0\0\x04\0\0\0\x03\0\0\0Self\0\0\0\0\x55\x55\x55\x55"
      "\x04\0\0\0\x05\0\0\0\x03\0\0\0GNU\0\x00\x1f\xa0\xff\x7e\0\0\0"s;
  EXPECT_EQ(qk::BuildId(notes, 4).text(), "001fa0ff7e");
}

TEST(BuildId, IsMadeOfItsBytes) {
  EXPECT_EQ(qk::BuildId::of({"\x00\x1f\xa0", 3}).text(), "001fa0");
  EXPECT_EQ(qk::BuildId::of("").text(), "");
  EXPECT_EQ(qk::BuildId::of(std::string(100, 'a')).text().size(), 64U);
}

TEST(BuildId, IsEmptyInDamagedNotes) {
  const auto note = "\x04\0\0\0\x04\0\0\0\x03\0\0\0GNU\0\x11\x22\x33\x44"s;
  EXPECT_EQ(qk::BuildId(note, 4).text(), "11223344");
  for (std::size_t length = 0; length < note.size(); ++length) {
    EXPECT_EQ(qk::BuildId(std::string_view(note).substr(0, length), 4).text(), "");
  }
  EXPECT_EQ(qk::BuildId("\xff\xff\xff\xff\x04\0\0\0\x03\0\0\0GNU\0\x11\x22\x33\x44"s, 4).text(),
            "");
  EXPECT_EQ(qk::BuildId("\x04\0\0\0\xff\xff\xff\xff\x03\0\0\0GNU\0\x11\x22\x33\x44"s, 4).text(),
            "");
}

TEST(BuildId, IsCutAtThirtyTwoBytes) {
  const std::string note = "\x04\0\0\0\x30\0\0\0\x03\0\0\0GNU\0"s + std::string(48, '\x12');
  std::string digits;
  for (int i = 0; i < 32; ++i) digits += "12";
  EXPECT_EQ(qk::BuildId(note, 4).text(), digits);
}

}  // namespace
