// The sums of tags in processes that have had a second thread.
#include "core/tag_shares.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/shutdown.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::Scene;
using kit::tag_of;

void* allocate(int hid, std::size_t size) { return qk_mem_imalloc(hid, size, 16, "src/app.c", 5); }

void release(int hid, void* memory) { qk_mem_ifree(hid, memory, "src/app.c", 6); }

class TagShares : public ::testing::Test {
 protected:
  void SetUp() override {
    std::thread([] {}).join();
  }
};

TEST_F(TagShares, AreInTheSizeOfTheTag) {
  const Pool first("MULTITHREADED", "AB");
  const Pool second("DATA", "AB");
  void* memory = allocate(first, 100);
  void* more = allocate(second, 20);
  EXPECT_EQ(qk_mem_tag_size("AB"), 120);
  release(first, memory);
  EXPECT_EQ(qk_mem_tag_size("AB"), 20);
  EXPECT_EQ(qk_mem_tag_size("AB"), 20) << "each change counts once";
  release(second, more);
  EXPECT_EQ(qk_mem_tag_size("AB"), 0);
}

/** The line of a section that shows the tag. */
std::string line_of_tag(unsigned section) {
  std::istringstream text(kit::sections("", section));
  for (std::string line; std::getline(text, line);) {
    if (line.find(" AB") != std::string::npos) return line;
  }
  return "";
}

TEST_F(TagShares, AreInASummary) {
  const Scene scene("TRACE");
  const Pool pool("MULTITHREADED", "AB");
  allocate(pool, 100);
  EXPECT_EQ(line_of_tag(QK_MEM_DUMP_SUMMARY), "     AB:              1        100");
}

TEST_F(TagShares, AreInABaseline) {
  const Scene scene("TRACE");
  const Pool pool("MULTITHREADED", "AB");
  allocate(pool, 100);
  qk_mem_baseline("");
  EXPECT_EQ(pool.record().tag->base_amount, 100U);
  EXPECT_EQ(pool.record().tag->base_qty, 1U);
}

TEST_F(TagShares, AreInAComparison) {
  const Scene scene("TRACE");
  const Pool pool("MULTITHREADED", "AB");
  allocate(pool, 100);
  qk_mem_baseline("");
  allocate(pool, 20);
  EXPECT_EQ(line_of_tag(QK_MEM_DUMP_COMPARISON),
            "  |  AB                       |    1       100|    2       120|   20%       20|");
}

TEST_F(TagShares, StayWithTheTagWhenTheHandleIsDeleted) {
  const Pool stays("MULTITHREADED", "AB");
  void* memory = allocate(stays, 100);
  const Pool goes("MULTITHREADED", "AB");
  allocate(goes, 30);
  EXPECT_EQ(qk_mem_idel_handle(goes, "src/app.c", 9), 0);
  EXPECT_EQ(qk_mem_tag_size("AB"), 100);
  release(stays, memory);
  EXPECT_EQ(qk_mem_tag_size("AB"), 0);
}

TEST(TagSums, ContinueWhenASecondThreadStarts) {
  const Pool pool("MULTITHREADED", "AB");
  void* early = allocate(pool, 100);
  std::thread([&] { allocate(pool, 20); }).join();
  EXPECT_EQ(tag_of("AB"), "2 for 120");
  release(pool, early);
  EXPECT_EQ(tag_of("AB"), "1 for 20");
}

TEST_F(TagShares, AreExactAfterManyThreads) {
  const Pool first("MULTITHREADED", "AB");
  const Pool second("MULTITHREADED", "AB");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, hid = int{i % 2 == 0 ? first : second}] {
      for (int round = 0; round < 2000; ++round) {
        void* memory = allocate(hid, 64);
        if (round % 100 == 0) {
          static_cast<void>(qk_mem_tag_size("AB"));
        }
        if (round % 4 != 0) release(hid, memory);
      }
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(tag_of("AB"), "2000 for 128000");
}

// What a thread still frees was taken out of the tag with the rest.
TEST_F(TagShares, OfAHiddenHandleAreNotInTheTag) {
  const Pool pool("MULTITHREADED AUTOFREE", "AB");
  void* first = allocate(pool, 100);
  void* second = allocate(pool, 30);
  qk_mem_handle& handle = pool.record();
  const qk::mem::RegistryLock lock;
  qk::mem::take_from_tag(handle);
  EXPECT_EQ(tag_of("AB"), "0 for 0");
  release(pool, first);
  qk::mem::return_to_tag(handle);
  EXPECT_EQ(tag_of("AB"), "1 for 30");
  release(pool, second);
  EXPECT_EQ(tag_of("AB"), "0 for 0");
}

}  // namespace
