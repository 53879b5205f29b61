#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::site_at;
namespace profile = qk::mem::profile;

constexpr char kFile[] = "peak_test.cpp";

class Peak : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES PEAK")); }

  kit::Scene scene_;
};

void* take(int hid, std::size_t size, int line) {
  return qk_mem_imalloc(hid, size, 16, kFile, line);
}

void release(int hid, void* memory) { qk_mem_ifree(hid, memory, kFile, 1); }

std::uint64_t at_peak(std::uint32_t line) { return site_at(kFile, line).bytes_at_peak; }

TEST_F(Peak, IsTheHighestSumOfAllHandles) {
  const Pool one;
  const Pool other;
  void* const first = take(one, 1000, 1);
  void* const second = take(other, 2000, 2);
  release(one, first);
  take(other, 500, 3);
  EXPECT_EQ(3000U, profile::whole.highest);
  EXPECT_EQ(2500U, profile::whole.live);
  EXPECT_EQ(1000U, kit::pool_of(one).level.highest);
  EXPECT_EQ(2500U, kit::pool_of(other).level.highest);
  release(other, second);
  EXPECT_EQ("", kit::profile_errors());
}

TEST_F(Peak, IsDividedAmongTheSitesAsItWas) {
  const Pool pool;
  take(pool, 100, 1);
  void* const transient = take(pool, 5000, 2);
  EXPECT_EQ(5000U, at_peak(2));
  release(pool, transient);
  take(pool, 700, 3);
  take(pool, 300, 1);
  EXPECT_EQ(100U, at_peak(1));
  EXPECT_EQ(5000U, at_peak(2));
  EXPECT_EQ(0U, at_peak(3));
  take(pool, 6000, 3);
  EXPECT_EQ(400U, at_peak(1));
  EXPECT_EQ(0U, at_peak(2));
  EXPECT_EQ(6700U, at_peak(3));
  EXPECT_EQ("", kit::profile_errors());
}

TEST_F(Peak, IsKnownForEachTag) {
  const Pool one("", "AB");
  const Pool other("", "AB");
  const Pool third("", "CD");
  void* const memory = take(one, 1000, 1);
  take(other, 500, 2);
  take(third, 200, 3);
  release(one, memory);
  const profile::TagLevel& tag = profile::tag_levels.at(kit::pool_of(one).tag);
  EXPECT_STREQ("AB", tag.name);
  EXPECT_EQ(1500U, tag.level.highest);
  EXPECT_EQ(500U, tag.level.live);
}

TEST_F(Peak, OfAReallocHasNoBlockTwice) {
  const Pool pool;
  void* memory = take(pool, 1000, 1);
  memory = qk_mem_irealloc(pool, memory, 1500, 16, kFile, 2);
  EXPECT_EQ(1500U, profile::whole.highest);
  release(pool, memory);
}

TEST_F(Peak, HasTheNumberOfItsEvent) {
  const Pool pool;
  const std::uint64_t before = profile::events_so_far();
  void* const first = take(pool, 10, 1);
  void* const second = take(pool, 10, 2);
  release(pool, first);
  release(pool, second);
  EXPECT_EQ(before + 2, profile::whole.highest_event);
  EXPECT_EQ(before + 4, profile::events_so_far());
}

TEST_F(Peak, OfThreadsIsExactWithin4KiBAHandle) {
  constexpr int kThreads = 4;
  constexpr int kBlocks = 2000;
  constexpr std::size_t kSize = 100;
  const Pool shared("MULTITHREADED");
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      const Pool own;
      std::vector<void*> blocks;
      for (int i = 0; i < kBlocks; ++i) {
        take(own, kSize, 1);
        blocks.push_back(take(shared, kSize, 2));
      }
      for (void* block : blocks) release(shared, block);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ("", kit::profile_errors());
  std::uint64_t own_bytes = 0;
  for (std::uint32_t number = 1; number <= profile::pools.count(); ++number) {
    const profile::Pool& pool = profile::pools.at(number);
    EXPECT_GT(4096, pool.not_passed_on);
    EXPECT_LT(-4096, pool.not_passed_on);
    own_bytes += pool.level.live;
  }
  EXPECT_EQ(kThreads * kBlocks * kSize, own_bytes);
  EXPECT_EQ(kThreads * kBlocks, static_cast<int>(site_at(kFile, 2).made_blocks));
  EXPECT_EQ(0U, site_at(kFile, 2).live_blocks);
  EXPECT_LE(own_bytes, profile::whole.highest + 5 * 4096);
  EXPECT_GE(2 * own_bytes + 5 * 4096, profile::whole.highest);
}

}  // namespace
