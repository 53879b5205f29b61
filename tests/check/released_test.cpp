#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "qkmem/check.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "qkmem/qkmem.hpp"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

extern "C" {
int checked_static_data = 0;
}

/** Writes to memory that was released, and releases of what is no block. */
namespace {

using kit::Pool;

class ReleasedMemory : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_check_config("GUARD FILL QUARANTINE")); }

  kit::Scene scene_;
};

char* got(int hid, std::size_t size, int line = 7) {
  return static_cast<char*>(qk_mem_imalloc(hid, size, 16, "src/a.c", line));
}

template <class Call>
std::string words_of(Call call) {
  testing::internal::CaptureStderr();
  call();
  return kit::replaced(testing::internal::GetCapturedStderr(), "process [0-9]+: ", "");
}

std::string words_of_free(int hid, void* memory, int line = 20) {
  return words_of([&] { qk_mem_ifree(hid, memory, "src/b.c", line); });
}

TEST_F(ReleasedMemory, ShowsWritesToALook) {
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ("", words_of_free(pool, memory));
  memory[5] = 7;
  EXPECT_EQ(
      "qkmem: 1 byte written after free 5 bytes into a block of 24, freed at b.c:20 (event 2), "
      "allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 2: 07\n",
      words_of([] { EXPECT_EQ(1, qk_mem_check(0)); }));
  EXPECT_EQ("", words_of([] { EXPECT_EQ(1, qk_mem_check(0)); }));
}

TEST_F(ReleasedMemory, ShowsWritesWhenItLeavesTheQuarantine) {
  ASSERT_EQ(0, qk_mem_check_config("GUARD QUARANTINE=1K"));
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ("", words_of_free(pool, memory));
  memory[5] = 7;
  char* const large = got(pool, 900);
  char* const larger = got(pool, 900);
  EXPECT_EQ("", words_of_free(pool, large));
  EXPECT_EQ(
      "qkmem: 1 byte written after free 5 bytes into a block of 24, freed at b.c:20 (event 2), "
      "allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 2: 07\n",
      words_of_free(pool, larger));
}

TEST_F(ReleasedMemory, ShowsWritesWhenTheQuarantineIsSwitchedOff) {
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ("", words_of_free(pool, memory));
  memory[23] = 7;
  EXPECT_EQ(
      "qkmem: 1 byte written after free 23 bytes into a block of 24, freed at b.c:20 (event 2), "
      "allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 2: 07\n",
      words_of([] { qk_mem_check_config(nullptr); }));
}

TEST_F(ReleasedMemory, HasItsFilling) {
  const Pool pool;
  auto* const memory = reinterpret_cast<unsigned char*>(got(pool, 24));
  for (int i = 0; i < 24; ++i) EXPECT_EQ(0xA5, memory[i]);
  std::memset(memory, 0, 24);
  qk_mem_free(pool, memory);
  for (int i = 0; i < 24; ++i) EXPECT_EQ(0x5A, memory[i]);
}

TEST_F(ReleasedMemory, ShowsWritesToTheAddressBeforeARealloc) {
  const Pool pool("", "SE");
  char* const old = got(pool, 24);
  std::strcpy(old, "content");
  char* const now = static_cast<char*>(qk_mem_irealloc(pool, old, 10, 16, "src/b.c", 12));
  EXPECT_NE(old, now);
  EXPECT_STREQ("content", now);
  old[2] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written after free 2 bytes into a block of 24, resized at b.c:12 (event 2), "
      "allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 2: 01\n",
      words_of([] { EXPECT_EQ(1, qk_mem_check(0)); }));
  EXPECT_EQ("", words_of_free(pool, now));
}

TEST_F(ReleasedMemory, SaysThatItWentWithItsHandle) {
  const int hid = qk_mem_inew_handle("", "SE", "src/a.c", 5);
  char* const memory = got(hid, 24);
  qk_mem_idel_handle(hid, "src/b.c", 12);
  memory[2] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written after free 2 bytes into a block of 24, gone with its handle at b.c:12 "
      "(event 2), allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 2: 01\n",
      words_of([] { EXPECT_EQ(1, qk_mem_check(0)); }));
}

TEST_F(ReleasedMemory, OfTheDataHandleStaysOutOfUseToo) {
  char* const memory = got(QK_MEM_DATA_HANDLE, 24);
  EXPECT_EQ("", words_of_free(QK_MEM_DATA_HANDLE, memory));
  memory[0] = 7;
  EXPECT_EQ(
      "qkmem: 1 byte written after free 0 bytes into a block of 24, freed at b.c:20 (event 2), "
      "allocated at a.c:7 by handle 2 (event 1), last seen whole at event 2: 07\n",
      words_of([] { EXPECT_EQ(1, qk_mem_check(0)); }));
}

TEST_F(ReleasedMemory, OfAClearedArenaShowsWritesAtTheNextAllocationAndToALook) {
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096", "AR");
  char* const piece = got(pool, 20);
  qk_mem_iclear_handle(pool, "src/b.c", 12);
  piece[3] = 1;
  EXPECT_EQ(
      "qkmem: 1 byte written into memory of handle 3 AR that no piece has, cleared at b.c:12 "
      "(event 1), last seen whole at event 1: 01\n",
      words_of([&] { got(pool, 20, 8); }));
  qk_mem_iclear_handle(pool, "src/b.c", 13);
  piece[4] = 2;
  EXPECT_EQ("", words_of([&] { EXPECT_EQ(1, qk_mem_check(pool)); }));
  EXPECT_EQ("", words_of([&] { EXPECT_EQ(0, qk_mem_check(pool)); }));
}

TEST_F(ReleasedMemory, IsNotReleasedAgain) {
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ("", words_of_free(pool, memory, 12));
  EXPECT_EQ(
      "qkmem: double free at b.c:20 (event 2): already freed at b.c:12, was allocated at a.c:7\n",
      words_of_free(pool, memory));
  EXPECT_EQ("", words_of_free(pool, memory));
  EXPECT_EQ(
      "qkmem: double free at b.c:21 (event 2): already freed at b.c:12, was allocated at a.c:7\n",
      words_of_free(pool, memory, 21));
}

TEST_F(ReleasedMemory, IsNotResized) {
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ("", words_of_free(pool, memory, 12));
  void* resized = memory;
  EXPECT_EQ(
      "qkmem: realloc of freed memory at b.c:20 (event 2): already freed at b.c:12, was "
      "allocated at a.c:7\n",
      words_of([&] { resized = qk_mem_irealloc(pool, memory, 30, 16, "src/b.c", 20); }));
  EXPECT_EQ(nullptr, resized);
  EXPECT_EQ(5022, qk_mem_error());
}

TEST_F(ReleasedMemory, IsKnownWithoutAQuarantineToo) {
  ASSERT_EQ(0, qk_mem_check_config("GUARD"));
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ("", words_of_free(pool, memory, 12));
  EXPECT_EQ(
      "qkmem: double free at b.c:20 (event 2): already freed at b.c:12, was allocated at a.c:7\n",
      words_of_free(pool, memory));
}

TEST_F(ReleasedMemory, IsForgottenWhenItIsABlockAgain) {
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ("", words_of_free(pool, memory));
  char* const other = got(pool, 24);
  EXPECT_NE(memory, other);
  EXPECT_EQ("", words_of_free(pool, other));
}

/** What a request that the allocator refuses once returns. It comes with the words that were said. */
template <class Request>
std::string words_when_refused(Request request, bool& has_memory) {
  return words_of([&] {
    kit::fail_request(1);
    void* const memory = request();
    kit::let_succeed();
    has_memory = memory != nullptr;
  });
}

TEST_F(ReleasedMemory, IsGivenBackBeforeAnAllocationFails) {
  ASSERT_EQ(0, qk_mem_check_config("QUARANTINE"));
  const Pool pool("", "SE");
  void* const resized = got(pool, 10);
  const std::function<void*()> requests[] = {
      [&] { return qk_mem_imalloc(pool, 50, 16, "src/a.c", 9); },
      [&] { return qk_mem_icalloc(pool, 5, 10, 16, "src/a.c", 9); },
      [&] { return qk_mem_irealloc(pool, nullptr, 50, 16, "src/a.c", 9); },
      [&] { return qk_mem_irealloc(pool, resized, 50, 16, "src/a.c", 9); },
      [&] { return qk_mem_istrdup(pool, "text", "src/a.c", 9); }};
  int line = 10;
  for (const auto& request : requests) {
    char* const memory = got(pool, 24, ++line);  // each place is told once
    qk_mem_free(pool, memory);
    memory[3] = 7;
    bool has_memory = false;
    const std::string words = words_when_refused(request, has_memory);
    EXPECT_TRUE(has_memory);
    EXPECT_NE(std::string::npos, words.find("1 byte written after free 3 bytes into a block of 24"))
        << words;
  }
  for (const auto& request : {requests[0], requests[1], requests[2], requests[4]}) {
    bool has_memory = true;
    EXPECT_EQ("", words_when_refused(request, has_memory));
    EXPECT_FALSE(has_memory);
  }
}

TEST(HistoryOfTheChecks, IsTheLargerOneOfTheirsAndTheProfiles) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("HISTORY=0"));
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE", "SE");
  const auto words_of_double_free = [&](int line) {
    char* const piece = got(pool, 24);
    qk_mem_ifree(pool, piece, "src/b.c", 12);
    return words_of_free(pool, piece, line);
  };
  ASSERT_EQ(0, qk_mem_check_config("FILL"));
  EXPECT_EQ(
      "qkmem: free of an unknown pointer at b.c:20 (event 2): on no handle: memory of the C "
      "library or an address that never was one\n",
      words_of_double_free(20));
  ASSERT_EQ(0, qk_mem_check_config("FILL HISTORY=100"));
  EXPECT_EQ(
      "qkmem: double free at b.c:21 (event 4): already freed at b.c:12, was allocated at a.c:7\n",
      words_of_double_free(21));
  ASSERT_EQ(0, qk_mem_profile_config("HISTORY=50"));
  ASSERT_EQ(0, qk_mem_check_config(nullptr));
  EXPECT_EQ(
      "qkmem: double free at b.c:22 (event 6): already freed at b.c:12, was allocated at a.c:7\n",
      words_of_double_free(22));
}

class WrongReleases : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_check_config("GUARD")); }

  kit::Scene scene_;
};

TEST_F(WrongReleases, OfAnInnerPointerLeaveTheBlockUsable) {
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  EXPECT_EQ(
      "qkmem: free of an inner pointer at b.c:20 (event 1): 8 bytes inside a block of 24 on "
      "handle 3 SE, allocated at a.c:7\n",
      words_of_free(pool, memory + 8));
  std::memset(memory, 1, 24);
  EXPECT_EQ("1 for 24", kit::data_of(pool));
  EXPECT_EQ("", words_of_free(pool, memory));
}

TEST_F(WrongReleases, OfAStackAndOfStaticDataAreTold) {
  const Pool pool("", "SE");
  int local = 0;
  EXPECT_EQ(
      "qkmem: free of a stack address at b.c:20 (event 0): on the stack of the calling thread\n",
      words_of_free(pool, &local, 20));
  EXPECT_EQ(
      "qkmem: free of a static address at b.c:21 (event 0): in static data of check_tests: "
      "checked_static_data\n",
      words_of_free(pool, &checked_static_data, 21));
  EXPECT_EQ(0, local + checked_static_data);
}

TEST_F(WrongReleases, OnAnotherHandleLeaveTheBlockUsable) {
  const Pool owner("", "SE");
  const Pool other("", "OT");
  char* const memory = got(owner, 24);
  EXPECT_EQ(
      "qkmem: free on the wrong handle at b.c:20 (event 1): belongs to handle 3 SE, allocated at "
      "a.c:7\n",
      words_of_free(other, memory));
  std::memset(memory, 1, 24);
  EXPECT_EQ("1 for 24", kit::data_of(owner));
  EXPECT_EQ("", words_of_free(owner, memory));
}

TEST_F(WrongReleases, AfterTheMemoryIsABlockAgainReachThatBlockAndShowAtItsOwnRelease) {
  const Pool pool("", "SE");
  char* const first = got(pool, 24, 7);
  qk_mem_ifree(pool, first, "src/b.c", 12);
  char* const second = got(pool, 24, 8);
#if !defined(__SANITIZE_ADDRESS__)  // which has a quarantine of its own
  ASSERT_EQ(first, second);
  EXPECT_EQ("", words_of_free(pool, first, 13));
  EXPECT_EQ(
      "qkmem: double free at b.c:14 (event 4): already freed at b.c:13, was allocated at a.c:8\n",
      words_of_free(pool, second, 14));
#else
  qk_mem_free(pool, second);
#endif
  EXPECT_EQ("0 for 0", kit::data_of(pool));
}

struct Door {
  int key = 5;
};

TEST_F(WrongReleases, OfAnObjectLeaveItUsable) {
  const Pool pool("", "SE");
  const int hid = pool;
  Door* const door = qk::make<Door>(hid);
  EXPECT_EQ(
      0U, words_of_free(pool, door)
              .find("qkmem: free of an object at b.c:20 (event 2): made by new and not by malloc, "
                    "recorded at released_test.cpp:"));
  EXPECT_EQ(5, door->key);
  // Its record is gone, as it always is.
  EXPECT_NE("", words_of([&] { qk::destroy(hid, door); }));
}

TEST_F(WrongReleases, ByReallocReturnNullAndACode) {
  const Pool pool("", "SE");
  char* const memory = got(pool, 24);
  void* resized = memory;
  EXPECT_EQ(
      "qkmem: realloc of an inner pointer at b.c:20 (event 1): 8 bytes inside a block of 24 on "
      "handle 3 SE, allocated at a.c:7\n",
      words_of([&] { resized = qk_mem_irealloc(pool, memory + 8, 30, 16, "src/b.c", 20); }));
  EXPECT_EQ(nullptr, resized);
  EXPECT_EQ(5022, qk_mem_error());
  EXPECT_EQ("", words_of_free(pool, memory));
}

TEST_F(WrongReleases, ArentThoseOfMemoryThatWasOnlyDeregistered) {
  const Pool pool("", "SE");
  void* const memory = std::malloc(10);
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, memory, nullptr, 10, "src/a.c", 7);
  qk_mem_ideregister(pool, QK_MEM_EXTERNAL, memory, "src/b.c", 12);
  void* resized = nullptr;
  EXPECT_NE("", words_of([&] { resized = qk_mem_irealloc(pool, memory, 20, 16, "src/b.c", 19); }));
  EXPECT_NE(nullptr, resized);
  // The sanitizer of addresses would tell of a leak.
  EXPECT_NE("", words_of_free(pool, resized));
}

}  // namespace
