#include <gtest/gtest.h>

#include <vector>

#include "core/roads.h"
#include "profile/report/report.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::held_by;
using kit::Pool;
using kit::row_of;
using kit::site_above;
using qk::mem::profile::RowKind;

TEST(Profile, IsOffUnlessSwitchedOn) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Pool pool;
  qk_mem_malloc(pool, 10);
  EXPECT_FALSE(qk::mem::profile::was_ever_on());
  EXPECT_EQ(0U, kit::handle_of(pool).profile_pool);
  EXPECT_EQ(0U, qk::mem::profile::arena.mapped());
  EXPECT_EQ(1, qk::mem::data_handle_is_bypassed);
}

TEST(Profile, IsSwitchedOnByTheEnvironment) {
  const kit::Scene scene(kit::Environment{"", "", "", "SITES REPORT=/dev/null"});
  const Pool pool;
  qk_mem_malloc(pool, 10);
  EXPECT_EQ("1 for 10, made 1 for 10", held_by(site_above()));
}

TEST(Profile, CountsEarlierMemoryInOneRow) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Pool pools[] = {Pool(), Pool("MULTITHREADED"), Pool("BLOCKMGMT BLOCKSIZE=512 BLOCKFREE")};
  void* blocks[3][100];
  for (int i = 0; i < 3; ++i) {
    for (void*& block : blocks[i]) block = qk_mem_malloc(pools[i], 10);
  }
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  EXPECT_EQ("300 for 3000, made 300 for 3000", held_by(row_of(RowKind::kFromBefore)));
  EXPECT_EQ("", kit::profile_errors());
  for (void* block : blocks[0]) qk_mem_free(pools[0], block);
  blocks[1][0] = qk_mem_realloc(pools[1], blocks[1][0], 20);
  EXPECT_EQ("1 for 20, made 1 for 20", held_by(site_above()));
  EXPECT_EQ("199 for 1990, made 300 for 3000", held_by(row_of(RowKind::kFromBefore)));
  qk_mem_clear_handle(pools[2]);
  EXPECT_EQ("99 for 990, made 300 for 3000", held_by(row_of(RowKind::kFromBefore)));
  EXPECT_EQ("", kit::profile_errors());
}

TEST(Profile, FollowsEarlierBlocksWhileItIsOff) {
  const kit::Scene scene;
  const Pool pool;
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  void* const early = qk_mem_malloc(pool, 10);
  const std::uint32_t line = site_above().key.line;
  ASSERT_EQ(0, qk_mem_profile_config(nullptr));
  void* const unseen = qk_mem_malloc(pool, 20);
  EXPECT_EQ(0U, site_above().made_blocks);
  qk_mem_free(pool, early);
  EXPECT_EQ("0 for 0, made 1 for 10", held_by(kit::site_at("switching_test.cpp", line)));
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  EXPECT_EQ("1 for 20, made 1 for 20", held_by(row_of(RowKind::kFromBefore)));
  qk_mem_free(pool, unseen);
  EXPECT_EQ(0U, kit::pool_of(pool).level.live);
}

TEST(Profile, BooksWhatDoesNotFitAsNotRecorded) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("MAX=400K"));
  const Pool pool;
  void* blocks[20000];
  for (int i = 0; i < 20000; ++i) {
    blocks[i] = qk_mem_imalloc(pool, 16, 16, "many.c", i);
  }
  EXPECT_NE(0U, row_of(RowKind::kNotRecorded).live_blocks);
  EXPECT_EQ(20000U, kit::sums_of(pool).live_blocks);
  EXPECT_EQ(320000U, kit::pool_of(pool).level.live);
  EXPECT_EQ("", kit::profile_errors());
  EXPECT_GE(400U << 10, qk::mem::profile::arena.mapped());
  for (void* block : blocks) qk_mem_free(pool, block);
  EXPECT_EQ(0U, kit::sums_of(pool).live_blocks);
  EXPECT_EQ("", kit::profile_errors());
}

TEST(Profile, NeverReleasesMoreThanItHasBooked) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("MAX=300K"));
  const Pool pool;
  std::vector<void*> blocks;
  const auto take_some = [&] {
    for (int i = 0; i < 20000; ++i) blocks.push_back(qk_mem_malloc(pool, 16));
  };
  take_some();
  ASSERT_NE(0U, row_of(RowKind::kNotRecorded).live_blocks);
  ASSERT_EQ(0, qk_mem_profile_config(nullptr));
  take_some();
  for (void* block : blocks) qk_mem_free(pool, block);
  EXPECT_EQ(0U, kit::sums_of(pool).live_blocks);
  EXPECT_EQ(0U, kit::pool_of(pool).level.live);
  EXPECT_EQ("", kit::profile_errors());
}

TEST(Profile, TakesNothingFromTheHeap) {
  const kit::Scene scene;
  const Pool pool;
  void* const held = qk_mem_malloc(pool, 10);
  kit::fail_all_requests();
  EXPECT_EQ(0, qk_mem_profile_config("SITES PEAK REPORT=/dev/null"));
  qk_mem_free(pool, held);
  qk::mem::profile::write_report(qk::mem::profile::Occasion::kRunning,
                                 qk::mem::profile::Naming::kComplete);
  EXPECT_FALSE(kit::has_failed());
  kit::let_succeed();
}

}  // namespace
