#include <gtest/gtest.h>

#include "profile/events.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::held_by;
using kit::Pool;
using kit::site_above;
using qk::mem::profile::Row;
using qk::mem::profile::RowKind;

/** Every test ends with figures that fit together. */
class Sites : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES")); }
  void TearDown() override { EXPECT_EQ("", kit::profile_errors()); }

  kit::Scene scene_;
};

TEST_F(Sites, CountTheBlocksOfEachLine) {
  const Pool pool;
  for (int i = 0; i < 3; ++i) {
    qk_mem_malloc(pool, 100);
    EXPECT_EQ(i + 1, static_cast<int>(site_above().live_blocks));
  }
  qk_mem_calloc(pool, 5, 8);
  EXPECT_EQ("1 for 40, made 1 for 40", held_by(site_above()));
  qk_mem_strdup(pool, "abc");
  EXPECT_EQ("1 for 4, made 1 for 4", held_by(site_above()));
  qk_mem_realloc(pool, nullptr, 70);
  EXPECT_EQ("1 for 70, made 1 for 70", held_by(site_above()));
}

TEST_F(Sites, LoseWhatIsFreed) {
  const Pool pool;
  void* const first = qk_mem_malloc(pool, 100);
  const auto site = [] { return kit::site_at("accounting_test.cpp", __LINE__ - 1); };
  EXPECT_EQ("1 for 100, made 1 for 100", held_by(site()));
  qk_mem_free(pool, first);
  EXPECT_EQ("0 for 0, made 1 for 100", held_by(site()));
}

TEST_F(Sites, KeepTheWholeNumberOfALine) {
  const Pool pool;
  qk_mem_imalloc(pool, 10, 16, "dir/amalgamation.c", 200000);
  EXPECT_EQ("1 for 10, made 1 for 10", held_by(kit::site_at("amalgamation.c", 200000)));
}

TEST_F(Sites, AreThoseOfOneHandle) {
  const Pool pools[] = {Pool(), Pool()};
  for (const Pool& pool : pools) qk_mem_malloc(pool, 100);
  EXPECT_EQ("1 for 100, made 1 for 100", held_by(site_above()));
  EXPECT_EQ(1U, kit::sums_of(pools[0]).live_blocks);
  EXPECT_EQ(1U, kit::sums_of(pools[1]).live_blocks);
}

TEST_F(Sites, OfEqualFileNamesAreOneRow) {
  const Pool pool;
  static const char one[] = "src/same.c";
  static const char other[] = "lib/same.c";
  qk_mem_imalloc(pool, 10, 16, one, 5);
  qk_mem_imalloc(pool, 20, 16, other, 5);
  EXPECT_EQ("2 for 30, made 2 for 30", held_by(kit::site_at("same.c", 5)));
}

TEST_F(Sites, GetWhatAReallocMovesThere) {
  const Pool pool;
  void* memory = qk_mem_malloc(pool, 100);
  const Row before = site_above();
  memory = qk_mem_realloc(pool, memory, 40);
  EXPECT_EQ("1 for 40, made 1 for 40", held_by(site_above()));
  EXPECT_EQ("1 for 100, made 1 for 100", held_by(before));
  EXPECT_EQ("0 for 0, made 1 for 100",
            held_by(kit::site_at("accounting_test.cpp", before.key.line)));
  memory = qk_mem_realloc(pool, memory, 400000);
  EXPECT_EQ("1 for 400000, made 1 for 400000", held_by(site_above()));
  qk_mem_free(pool, memory);
}

TEST_F(Sites, FollowMemoryThroughLargeArrays) {
  const Pool pool;
  constexpr int kBlocks = 3000;
  void* blocks[kBlocks];
  for (void*& block : blocks) block = qk_mem_malloc(pool, 24);
  EXPECT_EQ("3000 for 72000, made 3000 for 72000", held_by(site_above()));
  for (void*& block : blocks) block = qk_mem_realloc(pool, block, 48);
  EXPECT_EQ("3000 for 144000, made 3000 for 144000", held_by(site_above()));
  for (int i = 0; i < kBlocks; i += 2) qk_mem_free(pool, blocks[i]);
  EXPECT_EQ(1500U, kit::sums_of(pool).live_blocks);
}

TEST_F(Sites, KeepABlockThatCannotBeResized) {
  const Pool pool;
  void* const memory = qk_mem_malloc(pool, 100);
  const std::uint32_t line = site_above().key.line;
  EXPECT_EQ(nullptr, qk_mem_realloc(pool, memory, PTRDIFF_MAX));
  EXPECT_EQ("1 for 100, made 1 for 100", held_by(kit::site_at("accounting_test.cpp", line)));
  qk_mem_free(pool, memory);
}

TEST_F(Sites, CountNoEventWhenAnEmptyHandleIsCleared) {
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096");
  qk_mem_malloc(pool, 10);
  qk_mem_clear_handle(pool);
  EXPECT_EQ(2U, qk::mem::profile::events_so_far());
  qk_mem_clear_handle(pool);
  EXPECT_EQ(2U, qk::mem::profile::events_so_far());
}

TEST_F(Sites, LoseAllWhenTheHandleIsDeleted) {
  const int hid = qk_mem_new_handle("", "XY");
  const qk::mem::profile::Pool& pool = kit::pool_of(hid);
  for (int i = 0; i < 200; ++i) qk_mem_malloc(hid, 10);
  EXPECT_EQ("200 for 2000, made 200 for 2000", held_by(site_above()));
  qk_mem_del_handle(hid);
  EXPECT_EQ(0U, qk::mem::profile::sums_of(pool).live_blocks);
  EXPECT_EQ(0U, pool.level.live);
  EXPECT_EQ(2000U, pool.level.highest);
}

TEST_F(Sites, ContinueOnTheNextHandleOfTheNumberAndTag) {
  for (int i = 0; i < 2; ++i) {
    const int hid = qk_mem_new_handle("", "XY");
    qk_mem_malloc(hid, 10);
    EXPECT_EQ(1U, site_above().live_blocks);
    qk_mem_del_handle(hid);
  }
  const Pool other("", "ZZ");
  EXPECT_EQ(0U, kit::sums_of(other).made_blocks);
}

TEST_F(Sites, FollowPiecesThatHaveRecords) {
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE");
  void* const piece = qk_mem_malloc(pool, 100);
  EXPECT_EQ("1 for 100, made 1 for 100", held_by(site_above()));
  qk_mem_free(pool, piece);
  for (int i = 0; i < 100; ++i) qk_mem_malloc(pool, 100);
  EXPECT_EQ("100 for 10000, made 100 for 10000", held_by(site_above()));
  qk_mem_clear_handle(pool);
  EXPECT_EQ(0U, kit::pool_of(pool).level.live);
}

TEST_F(Sites, FollowPiecesThatHaveNone) {
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096");
  for (int i = 0; i < 100; ++i) qk_mem_malloc(pool, 100);
  EXPECT_EQ("100 for 10000, made 100 for 10000", held_by(site_above()));
  qk_mem_strdup(pool, "abc");
  EXPECT_EQ("1 for 4, made 1 for 4", held_by(site_above()));
  qk_mem_realloc(pool, nullptr, 20);
  EXPECT_EQ("1 for 20, made 1 for 20", held_by(site_above()));
  qk_mem_clear_handle(pool);
  EXPECT_EQ(0U, kit::pool_of(pool).level.live);
}

TEST_F(Sites, FollowTheDataHandleWithoutRecords) {
  void* memory = qk_mem_malloc(QK_MEM_DATA_HANDLE, 100);
  EXPECT_EQ("1 for 100, made 1 for 100", held_by(site_above()));
  memory = qk_mem_realloc(QK_MEM_DATA_HANDLE, memory, 5000);
  EXPECT_EQ("1 for 5000, made 1 for 5000", held_by(site_above()));
  EXPECT_EQ(nullptr, qk_mem_realloc(QK_MEM_DATA_HANDLE, memory, PTRDIFF_MAX));
  EXPECT_EQ(5000U, kit::pool_of(QK_MEM_DATA_HANDLE).level.live);
  qk_mem_free(QK_MEM_DATA_HANDLE, memory);
  void* const zeroed = qk_mem_calloc(QK_MEM_DATA_HANDLE, 3, 5);
  EXPECT_EQ("1 for 15, made 1 for 15", held_by(site_above()));
  void* const text = qk_mem_strdup(QK_MEM_DATA_HANDLE, "abc");
  EXPECT_EQ("1 for 4, made 1 for 4", held_by(site_above()));
  qk_mem_free(QK_MEM_DATA_HANDLE, zeroed);
  qk_mem_free(QK_MEM_DATA_HANDLE, text);
  EXPECT_EQ(0U, kit::pool_of(QK_MEM_DATA_HANDLE).level.live);
}

TEST_F(Sites, FollowManyBlocksWithoutRecords) {
  constexpr int kBlocks = 5000;
  void* blocks[kBlocks];
  for (int i = 0; i < kBlocks; ++i) blocks[i] = qk_mem_malloc(QK_MEM_DATA_HANDLE, 16);
  EXPECT_EQ("5000 for 80000, made 5000 for 80000", held_by(site_above()));
  for (int i = 0; i < kBlocks; i += 3) qk_mem_free(QK_MEM_DATA_HANDLE, blocks[i]);
  EXPECT_EQ(3333U, kit::sums_of(QK_MEM_DATA_HANDLE).live_blocks);
  for (int i = 0; i < kBlocks; ++i) {
    if (i % 3 != 0) qk_mem_free(QK_MEM_DATA_HANDLE, blocks[i]);
  }
  EXPECT_EQ(0U, kit::sums_of(QK_MEM_DATA_HANDLE).live_blocks);
}

TEST_F(Sites, FollowRegisteredMemory) {
  const Pool pool;
  char memory[50];
  qk_mem_register(pool, 0, memory, 50);
  EXPECT_EQ("1 for 50, made 1 for 50", held_by(site_above()));
  qk_mem_deregister(pool, 0, memory);
  EXPECT_EQ(0U, kit::pool_of(pool).level.live);
}

TEST_F(Sites, IgnoreFreesOfUnknownMemory) {
  const Pool pool;
  char memory[50];
  qk_mem_free(pool, std::malloc(10));
  qk_mem_deregister(pool, 0, memory);
  qk_mem_free(QK_MEM_DATA_HANDLE, std::malloc(10));
  EXPECT_EQ(0U, kit::sums_of(pool).made_blocks);
}

TEST_F(Sites, KnowTheLargestBlockAndTheHighestLevel) {
  const Pool pool;
  std::uint32_t line = 0;
  void* last = nullptr;
  for (const std::size_t size : {10, 500, 20}) {
    qk_mem_free(pool, last);
    last = qk_mem_malloc(pool, size);
    line = site_above().key.line;
  }
  const Row row = kit::site_at("accounting_test.cpp", line);
  EXPECT_EQ(500U, row.largest_block);
  EXPECT_EQ(500U, row.highest_bytes);
}

TEST_F(Sites, CountBlocksThatAreFreedSoon) {
  const Pool pool;
  std::uint32_t line = 0;
  for (int i = 0; i < 50; ++i) {
    void* const memory = qk_mem_malloc(pool, 8);
    line = site_above().key.line;
    qk_mem_free(pool, memory);
  }
  const Row churning = kit::site_at("accounting_test.cpp", line);
  EXPECT_EQ(50U, churning.freed_soon);
  EXPECT_EQ(50U, churning.sum_of_lives);
  void* const memory = qk_mem_malloc(pool, 8);
  const std::uint32_t kept_line = site_above().key.line;
  for (int i = 0; i < 17; ++i) qk_mem_malloc(pool, 8);
  qk_mem_free(pool, memory);
  const Row kept = kit::site_at("accounting_test.cpp", kept_line);
  EXPECT_EQ(0U, kept.freed_soon);
  EXPECT_EQ(18U, kept.sum_of_lives);
}

}  // namespace
