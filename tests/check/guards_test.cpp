#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "profile/misuses.h"
#include "qkmem/check.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

/** Writes outside of blocks. */
namespace {

using kit::Pool;

class Guards : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_check_config("GUARD")); }

  kit::Scene scene_;
};

char* guarded(int hid, std::size_t size, int line = 7) {
  return static_cast<char*>(qk_mem_imalloc(hid, size, 16, "src/a.c", line));
}

/** What is written while a call is made. */
template <class Call>
std::string told_by(Call call) {
  testing::internal::CaptureStderr();
  call();
  return kit::replaced(testing::internal::GetCapturedStderr(), "process [0-9]+: ", "");
}

std::string told_by_free(int hid, void* memory) {
  return told_by([&] { qk_mem_ifree(hid, memory, "src/b.c", 20); });
}

TEST_F(Guards, TellOfAByteBehindABlockWhenItIsReleased) {
  const Pool pool("", "SE");
  char* const memory = guarded(pool, 24);
  memory[24] = 'A';
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, freed at b.c:20 (event 2), allocated at a.c:7 "
      "by handle 3 SE (event 1), last seen whole at event 1: 41\n",
      told_by_free(pool, memory));
  EXPECT_EQ("0 for 0", kit::data_of(pool));
}

TEST_F(Guards, SayHowFarBehindABlockTheWriteBegan) {
  const Pool pool("", "SE");
  char* const memory = guarded(pool, 24);
  std::memset(memory + 28, 0, 12);
  EXPECT_EQ(
      "qkmem: 12 bytes written 4 bytes behind a block of 24, freed at b.c:20 (event 2), "
      "allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 00 00 00 00 00 "
      "00 00 00 00 00 00 00\n",
      told_by_free(pool, memory));
}

TEST_F(Guards, TellOfALookOnceAndNotAgainAtTheRelease) {
  const Pool pool("", "SE");
  char* const memory = guarded(pool, 24);
  memory[24] = 'A';
  std::int64_t damaged = 0;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event 1), "
      "last seen whole at event 1: 41\n",
      told_by([&] { damaged = qk_mem_check(pool); }));
  EXPECT_EQ(1, damaged);
  EXPECT_EQ("", told_by([&] { damaged = qk_mem_check(0); }));
  EXPECT_EQ(1, damaged);
  EXPECT_EQ("", told_by_free(pool, memory));
  EXPECT_EQ(0, qk_mem_check(0));
}

TEST_F(Guards, TellOfABlockBesideOneThatIsReleased) {
  const Pool pool;
  char* const first = guarded(pool, 24, 7);
  char* const second = guarded(pool, 24, 8);
  EXPECT_EQ("", told_by([&] { first[24] = 0; }));
  const std::string words = told_by_free(pool, second);
  // The allocator may have put them into two pages.
  EXPECT_TRUE(words.empty() || words.find("allocated at a.c:7 ") != std::string::npos) << words;
  qk_mem_free(pool, first);
}

TEST_F(Guards, TellOfAllBlocksThatAHandleStillHasWhenItIsDeleted) {
  const int hid = qk_mem_new_handle("", "SE");
  for (int line = 7; line < 10; ++line) guarded(hid, 24, line)[24] = 1;
  guarded(hid, 24, 10);
  const std::string words = told_by([&] { qk_mem_idel_handle(hid, "src/b.c", 21); });
  // In the order of their addresses.
  for (const char* const line :
       {"qkmem: 1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event 1), "
        "last seen whole at event 1: 01\n",
        "qkmem: 1 byte written behind a block of 24, allocated at a.c:8 by handle 3 SE (event 2), "
        "last seen whole at event 2: 01\n",
        "qkmem: 1 byte written behind a block of 24, allocated at a.c:9 by handle 3 SE (event 3), "
        "last seen whole at event 3: 01\n"}) {
    EXPECT_NE(std::string::npos, words.find(line)) << words;
  }
  EXPECT_EQ(3, std::count(words.begin(), words.end(), '\n'));
}

TEST_F(Guards, SayThatAWholeOneIsDestroyed) {
  const Pool pool("", "SE");
  char* const memory = guarded(pool, 24);
  std::memset(memory + 24, 'A', 16);
  EXPECT_EQ(
      "qkmem: the whole guard of 16 bytes behind a block of 24 destroyed, freed at b.c:20 (event "
      "2), allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 41 41 41 41 "
      "41 41 41 41 41 41 41 41 41 41 41 41; a write went past it, or the block was given to the "
      "C library's free()\n",
      told_by_free(pool, memory));
}

TEST_F(Guards, CountAPlaceAgainInTheReport) {
  const Pool pool("", "SE");
  testing::internal::CaptureStderr();
  for (int i = 0; i < 1000; ++i) {
    char* const memory = guarded(pool, 24);
    memory[24] = 'A';
    qk_mem_free(pool, memory);
  }
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(1U, qk::mem::profile::misuses.count());
  EXPECT_EQ(1000U, qk::mem::profile::misuses.at(1).times);
}

TEST_F(Guards, AreAroundMemoryOfAllCalls) {
  const Pool pool("", "SE");
  char* const zeroed = static_cast<char*>(qk_mem_icalloc(pool, 3, 5, 16, "src/a.c", 8));
  EXPECT_EQ(0, std::memcmp(zeroed, "\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 15));
  zeroed[15] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 15, freed at b.c:20 (event 2), allocated at a.c:8 "
      "by handle 3 SE (event 1), last seen whole at event 1: 01\n",
      told_by_free(pool, zeroed));
  char* const text = static_cast<char*>(qk_mem_istrdup(pool, "seven b", "src/a.c", 9));
  EXPECT_STREQ("seven b", text);
  text[8] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 8, freed at b.c:20 (event 4), allocated at a.c:9 "
      "by handle 3 SE (event 3), last seen whole at event 3: 01\n",
      told_by_free(pool, text));
  char* const fresh = static_cast<char*>(qk_mem_irealloc(pool, nullptr, 10, 16, "src/a.c", 10));
  fresh[10] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 10, freed at b.c:20 (event 6), allocated at "
      "a.c:10 by handle 3 SE (event 5), last seen whole at event 5: 01\n",
      told_by_free(pool, fresh));
}

TEST_F(Guards, FollowAReallocToLessAndToMore) {
  const Pool pool("", "SE");
  char* memory = guarded(pool, 24);
  std::strcpy(memory, "content");
  memory = static_cast<char*>(qk_mem_irealloc(pool, memory, 10, 16, "src/a.c", 8));
  EXPECT_STREQ("content", memory);
  memory[10] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 10, allocated at a.c:8 by handle 3 SE (event 2), "
      "last seen whole at event 2: 01\n",
      told_by([&] {
        memory = static_cast<char*>(qk_mem_irealloc(pool, memory, 5000, 16, "src/a.c", 9));
      }));
  EXPECT_STREQ("content", memory);
  memory[5000] = 2;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 5,000, freed at b.c:20 (event 4), allocated at "
      "a.c:9 by handle 3 SE (event 3), last seen whole at event 3: 02\n",
      told_by_free(pool, memory));
}

TEST_F(Guards, AreAroundMemoryOfTheDataHandle) {
  char* const memory = guarded(QK_MEM_DATA_HANDLE, 24);
  memory[24] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, freed at b.c:20 (event 2), allocated at a.c:7 "
      "by handle 2 (event 1), last seen whole at event 1: 01\n",
      told_by_free(QK_MEM_DATA_HANDLE, memory));
}

TEST_F(Guards, AreAroundPiecesThatAreRecordedAndOthersThatAreNot) {
  const Pool arena("BLOCKMGMT", "AR");
  const Pool pieces("BLOCKMGMT BLOCKFREE", "PI");
  char* const piece = guarded(arena, 20, 7);
  guarded(arena, 20, 8);
  std::memset(piece, 1, 22);
  EXPECT_EQ(
      "qkmem: 2 bytes written behind a block of 20, allocated at a.c:7 by handle 3 AR (event 1), "
      "last seen whole at event 1: 01 01\n",
      told_by([&] { EXPECT_EQ(1, qk_mem_check(arena)); }));
  char* const other = guarded(pieces, 20, 9);
  guarded(pieces, 20, 10);
  std::memset(other, 1, 22);
  EXPECT_EQ(
      "qkmem: 2 bytes written behind a block of 20, allocated at a.c:9 by handle 4 PI (event 3), "
      "last seen whole at event 3: 01 01\n",
      told_by_free(pieces, other));
}

TEST_F(Guards, LeaveTheUsersFiguresAndAlignment) {
  const Pool pool("", "SE");
  for (const std::size_t size : {1U, 15U, 16U, 17U, 100U, 5000U}) {
    char* const memory = guarded(pool, size);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(memory) % 16);
    EXPECT_EQ("1 for " + std::to_string(size), kit::data_of(pool));
    qk_mem_free(pool, memory);
  }
}

TEST_F(Guards, ArentExpectedOfBlocksFromBefore) {
  ASSERT_EQ(0, qk_mem_check_config(nullptr));
  const Pool pool;
  char* const before = guarded(pool, 24);
  ASSERT_EQ(0, qk_mem_check_config("GUARD"));
  char* const with = guarded(pool, 24, 8);
  ASSERT_EQ(0, qk_mem_check_config(""));
  with[24] = 1;
  EXPECT_EQ("", told_by_free(pool, before));
  EXPECT_NE("", told_by_free(pool, with));
}

TEST_F(Guards, KeepTheirFirstSize) {
  const Pool pool("", "SE");
  ASSERT_EQ(0, qk_mem_check_config("GUARD=64"));
  char* const memory = guarded(pool, 24);
  std::memset(memory + 24, 0, 16);
  EXPECT_EQ(
      "qkmem: the whole guard of 16 bytes behind a block of 24 destroyed, freed at b.c:20 (event "
      "2), allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 00 00 00 00 "
      "00 00 00 00 00 00 00 00 00 00 00 00; a write went past it, or the block was given to the "
      "C library's free()\n",
      told_by_free(pool, memory));
}

/** A guard of another size. Each size needs a process of its own. */
std::string told_of_guard(const char* options, std::size_t from, std::size_t to) {
  kit::Scene scene;
  EXPECT_EQ(0, qk_mem_check_config(options));
  const Pool pool("", "SE");
  char* const memory = guarded(pool, 24);
  std::memset(memory + 24 + from, 0, to - from);
  return told_by_free(pool, memory);
}

TEST(SizesOfGuards, AreRoundedUp) {
  EXPECT_EQ(
      "qkmem: 1 byte written 31 bytes behind a block of 24, freed at b.c:20 (event 2), allocated "
      "at a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 00\n",
      told_of_guard("GUARD=17", 31, 32));
}
TEST(SizesOfGuards, CanBe64) {
  EXPECT_EQ(
      "qkmem: 1 byte written 63 bytes behind a block of 24, freed at b.c:20 (event 2), allocated "
      "at a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 00\n",
      told_of_guard("GUARD=64", 63, 64));
}
TEST(SizesOfGuards, CanBeAPage) {
  EXPECT_EQ(
      "qkmem: 1 byte written 4,095 bytes behind a block of 24, freed at b.c:20 (event 2), "
      "allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 00\n",
      told_of_guard("GUARD=4096", 4095, 4096));
}

class FrontGuards : public testing::Test {
 protected:
  const int profile_is_off_ = unsetenv("QK_MEM_PROFILE");  // so that one test can switch all off

  void SetUp() override { ASSERT_EQ(0, qk_mem_check_config("GUARD=16,FRONT")); }

  kit::Scene scene_;
};

TEST_F(FrontGuards, TellOfAByteInFrontOfABlock) {
  const Pool pool("", "SE");
  char* const memory = guarded(pool, 24);
  EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(memory) % 16);
  memory[-1] = 'x';
  EXPECT_EQ(
      "qkmem: 1 byte written in front of a block of 24, freed at b.c:20 (event 2), allocated at "
      "a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 78\n",
      told_by_free(pool, memory));
}

TEST_F(FrontGuards, TellOfBothSidesOfABlock) {
  const Pool pool("", "SE");
  char* const memory = guarded(pool, 24);
  memory[-3] = 'x';
  memory[25] = 'y';
  EXPECT_EQ(
      "qkmem: 1 byte written 1 byte behind a block of 24, allocated at a.c:7 by handle 3 SE "
      "(event 1), last seen whole at event 1: 79\n"
      "qkmem: 1 byte written 2 bytes in front of a block of 24, allocated at a.c:7 by handle 3 "
      "SE (event 1), last seen whole at event 1: 78\n",
      told_by([&] { EXPECT_EQ(1, qk_mem_check(pool)); }));
  qk_mem_free(pool, memory);
}

TEST_F(FrontGuards, StayThroughARealloc) {
  const Pool pool("", "SE");
  char* memory = guarded(pool, 24);
  std::strcpy(memory, "content");
  ASSERT_EQ(0, qk_mem_check_config(nullptr));
  memory = static_cast<char*>(qk_mem_irealloc(pool, memory, 50000, 16, "src/a.c", 8));
  EXPECT_STREQ("content", memory);
  memory[-1] = 'x';
  EXPECT_EQ(
      "qkmem: 1 byte written in front of a block of 50,000, freed at b.c:20 (event 1), allocated "
      "at a.c:8 by handle 3 SE, last seen whole at event 0: 78\n",
      told_by_free(pool, memory));
}

TEST_F(FrontGuards, GoWithTheHandle) {
  const int hid = qk_mem_new_handle("", "SE");
  for (int i = 0; i < 100; ++i) guarded(hid, 24);
  EXPECT_EQ("", told_by([&] { EXPECT_EQ(0, qk_mem_del_handle(hid)); }));
}

}  // namespace
