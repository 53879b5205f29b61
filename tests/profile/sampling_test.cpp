#include "profile/sampling.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::site_above;
using qk::mem::profile::Row;

/** Each thread's draws are the same in each run, so that nothing below depends on chance. */
class Samples : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ("", kit::profile_errors()); }

  void sample(const char* options) { ASSERT_EQ(0, qk_mem_profile_config(options)); }

  kit::Scene scene_;
};

/** Sizes from 8 bytes to 4 KiB, small ones more often. */
std::uint64_t size_of(std::uint64_t i) { return 8 + (i * 2654435761U % 64) * (i * 40503U % 65); }

/** The distance of an estimate from the truth, in standard errors. */
double errors_off(std::uint64_t estimate, std::uint64_t truth) {
  return std::abs(static_cast<double>(estimate) - static_cast<double>(truth)) /
         static_cast<double>(qk::mem::profile::standard_error(truth));
}

TEST_F(Samples, EstimateWhatIsHeldWithinTheirError) {
  sample("SAMPLE=16K");
  const Pool pool;
  std::uint64_t held = 0;
  for (std::uint64_t i = 0; i < 40000; ++i) {
    qk_mem_free(pool, qk_mem_malloc(pool, size_of(i + 1)));
    qk_mem_malloc(pool, size_of(i));
    held += size_of(i);
  }
  const Row row = kit::site_at("sampling_test.cpp", __LINE__ - 3);
  EXPECT_LT(errors_off(row.live_bytes, held), 4);
  EXPECT_NEAR(40000, static_cast<double>(row.live_blocks), 8000);
  const Row freed = kit::site_at("sampling_test.cpp", __LINE__ - 7);
  EXPECT_LT(errors_off(freed.made_bytes, held), 4);
  EXPECT_EQ(0U, freed.live_bytes);
}

TEST_F(Samples, TellTheBytesOfSmallAndOfLargeBlocksAlike) {
  sample("SAMPLE=4K");
  const Pool pool;
  for (int i = 0; i < 20000; ++i) qk_mem_calloc(pool, 1, 24);
  EXPECT_LT(errors_off(site_above().live_bytes, 20000 * 24), 4);
  for (int i = 0; i < 2000; ++i) qk_mem_malloc(pool, 6000);
  EXPECT_LT(errors_off(site_above().live_bytes, 2000 * 6000), 4);
  EXPECT_NEAR(2000, static_cast<double>(site_above("sampling_test.cpp", __LINE__ - 1).live_blocks),
              100);
}

TEST_F(Samples, AreUnbiasedOverManyBlocks) {
  sample("SAMPLE=128");
  const Pool pool;
  for (int i = 0; i < 300000; ++i) qk_mem_malloc(pool, 64);
  EXPECT_NEAR(1, static_cast<double>(site_above().live_bytes) / (300000 * 64), 0.009);
  EXPECT_NEAR(1, static_cast<double>(kit::sums_of(pool).live_blocks) / 300000, 0.009);
}

TEST_F(Samples, AreEmptyWhenAllIsFreed) {
  sample("SAMPLE=200 PEAK");
  const Pool pool;
  std::vector<void*> blocks;
  for (std::uint64_t i = 0; i < 2000; ++i) {
    blocks.push_back(qk_mem_malloc(pool, size_of(i)));
    blocks.push_back(qk_mem_strdup(pool, "a text"));
    blocks.push_back(qk_mem_realloc(pool, qk_mem_calloc(pool, 3, i), size_of(3 * i)));
  }
  EXPECT_NE(0U, kit::sums_of(pool).live_blocks);
  for (void* block : blocks) qk_mem_free(pool, block);
  EXPECT_EQ(0U, kit::sums_of(pool).live_blocks);
  EXPECT_EQ(0U, kit::pool_of(pool).level.live);
}

TEST_F(Samples, AreDrawnFromMemoryWithoutRecords) {
  sample("SAMPLE=1K");
  std::vector<void*> blocks;
  for (int i = 0; i < 10000; ++i) blocks.push_back(qk_mem_malloc(QK_MEM_DATA_HANDLE, 64));
  EXPECT_LT(errors_off(site_above().live_bytes, 640000), 4);
  const Pool managed("BLOCKMGMT");
  for (int i = 0; i < 10000; ++i) qk_mem_malloc(managed, 64);
  EXPECT_LT(errors_off(site_above().live_bytes, 640000), 4);
  for (void* block : blocks) qk_mem_free(QK_MEM_DATA_HANDLE, block);
  EXPECT_EQ(0U, kit::sums_of(QK_MEM_DATA_HANDLE).live_blocks);
}

TEST_F(Samples, DoNotTellWhatIsFreedSoon) {
  sample("SAMPLE=64");
  const Pool pool;
  for (int i = 0; i < 1000; ++i) qk_mem_free(pool, qk_mem_malloc(pool, 64));
  EXPECT_NE(0U, site_above().made_blocks);
  EXPECT_EQ(0U, kit::site_at("sampling_test.cpp", __LINE__ - 2).freed_soon);
}

TEST(SamplesOfNewMemory, LeaveMemoryFromBeforeAsItWas) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Pool pool;
  for (int i = 0; i < 100; ++i) qk_mem_malloc(pool, 10);
  ASSERT_EQ(0, qk_mem_profile_config("SAMPLE=1M"));
  EXPECT_EQ("100 for 1000, made 100 for 1000",
            kit::held_by(kit::row_of(qk::mem::profile::RowKind::kFromBefore)));
}

TEST_F(Samples, CanBeEndedForNewMemory) {
  sample("SAMPLE=64");
  const Pool pool;
  for (int i = 0; i < 100; ++i) qk_mem_malloc(pool, 64);
  sample("SITES");
  for (int i = 0; i < 100; ++i) qk_mem_malloc(pool, 10);
  EXPECT_EQ("100 for 1000, made 100 for 1000", kit::held_by(site_above()));
}

TEST_F(Samples, KeepTheirFirstInterval) {
  sample("SAMPLE=64");
  testing::internal::CaptureStderr();
  sample("SAMPLE=128");
  EXPECT_EQ(
      "qkmem: qk_mem_profile_config: SAMPLE stays 64, because blocks of that sample can be live\n",
      testing::internal::GetCapturedStderr());
  EXPECT_EQ(64U, qk::mem::profile::sample_interval());
}

TEST_F(Samples, AreReportedWithTheirError) {
  sample("SAMPLE=1K");
  const Pool pool;
  // A block that is a thousand times the interval is always in the sample.
  qk_mem_imalloc(pool, 1 << 20, QK_MEM_ALIGNMENT, "a.c", 1);
  EXPECT_EQ(
      "qkmem: 1 site holds 1.0 MiB in 1 block; peak 1.0 MiB at T s (event 1)\n"
      "qkmem: estimates from a sample, SAMPLE=1024; 1.0 MiB have a standard error of 32.0 KiB\n"
      "    bytes     error  blocks  share  made  handle  site\n"
      "  1.0 MiB  32.0 KiB       1   100%     1       3  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      kit::text_report("SAMPLE=1K"));
}

TEST_F(Samples, DoNotSayThatNothingIsHeld) {
  sample("SAMPLE=1K");
  const Pool pool;
  qk_mem_free(pool, qk_mem_imalloc(pool, 1 << 20, QK_MEM_ALIGNMENT, "a.c", 1));
  EXPECT_EQ(
      "qkmem: nothing of the sample is held; 1 allocation of 1.0 MiB was watched; peak 1.0 MiB at "
      "T s (event 1)\n"
      "qkmem: estimates from a sample, SAMPLE=1024\n"
      "qkmem: the profile took M of its own\n",
      kit::text_report("SAMPLE=1K"));
}

TEST_F(Samples, AreNamedInReportsOfGrowth) {
  sample("SAMPLE=1K");
  const Pool pool;
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  qk_mem_imalloc(pool, 1 << 20, QK_MEM_ALIGNMENT, "a.c", 1);
  EXPECT_EQ(
      "qkmem: 1 site grew by 1.0 MiB in 1 block between \"mark\" (event 0, T s) and now (event 1, "
      "T s)\n"
      "qkmem: estimates from a sample, SAMPLE=1024\n"
      "     grown  blocks  made     held  handle  site\n"
      "  +1.0 MiB      +1     1  1.0 MiB       3  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      kit::requested("SINCE=mark").text);
}

TEST_F(Samples, ReportNoErrorWithoutASample) {
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  EXPECT_EQ(0U, qk::mem::profile::standard_error(1 << 20));
}

/** Their sums must be what the library's own exponential function says. */
TEST_F(Samples, StandForTheInverseOfTheirChance) {
  sample("SAMPLE=1000");
  for (const std::uint64_t bytes : {1, 10, 100, 999, 1000, 5000, 30000, 100000}) {
    const double chance = -std::expm1(-static_cast<double>(bytes) / 1000);
    const auto amount = qk::mem::profile::sampled_amount(bytes, 12345);
    EXPECT_NEAR(static_cast<double>(bytes) / chance, static_cast<double>(amount.bytes), 1) << bytes;
    EXPECT_NEAR(1 / chance, static_cast<double>(amount.blocks), 1) << bytes;
  }
}

}  // namespace
