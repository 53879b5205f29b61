#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;

void* take(int hid, std::size_t size, const char* file) {
  return qk_mem_imalloc(hid, size, 16, file, 1);
}

/** "+10 in +1 of 1": bytes, blocks, and the handles that have grown. */
std::string text_of(const qk_mem_change& change) {
  return std::to_string(change.bytes) + " in " + std::to_string(change.blocks) + " of " +
         std::to_string(change.handles);
}

std::string growth(const char* since, const char* filter = nullptr) {
  return text_of(qk_mem_growth(since, filter));
}

class GrowthFigures : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null")); }

  kit::Scene scene_;
};

constexpr char kFailed[] = "9223372036854775807 in 9223372036854775807 of 9223372036854775807";

TEST_F(GrowthFigures, AreSignedSumsSinceTheSnapshot) {
  const Pool pool;
  void* const first = take(pool, 100, "a.c");
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  EXPECT_EQ("0 in 0 of 0", growth("mark"));
  void* const second = take(pool, 30, "a.c");
  take(pool, 5, "b.c");
  EXPECT_EQ("35 in 2 of 1", growth("mark"));
  qk_mem_free(pool, first);
  qk_mem_free(pool, second);
  EXPECT_EQ("-95 in 0 of 0", growth("mark"));
  EXPECT_EQ("5 in 1 of 1", growth(nullptr));
}

TEST_F(GrowthFigures, AreThoseOfTheSitesThatAFilterSelects) {
  const Pool one("", "AB");
  const Pool two("", "CD");
  const Pool untagged;
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  take(one, 1, "parser.c");
  take(two, 20, "parser.c");
  take(two, 300, "list.c");
  take(untagged, 4000, "list.c");
  EXPECT_EQ("4321 in 4 of 3", growth("mark", ""));
  EXPECT_EQ("320 in 2 of 1", growth("mark", "HANDLE=4"));
  EXPECT_EQ("1 in 1 of 1", growth("mark", "tag=ab"));
  EXPECT_EQ("4000 in 1 of 1", growth("mark", "TAG=NONE"));
  EXPECT_EQ("21 in 2 of 2", growth("mark", "FILE=parse"));
  EXPECT_EQ("20 in 1 of 1", growth("mark", "FILE=parser.? TAG=CD"));
  EXPECT_EQ("0 in 0 of 0", growth("mark", "FILE=parser.c HANDLE=5"));
}

TEST_F(GrowthFigures, CountTheHandlesThatGrewBesideOnesThatShrank) {
  const Pool grown;
  const Pool shrunk;
  const Pool split;
  void* const gone = take(shrunk, 100, "a.c");
  void* const whole = take(split, 20, "a.c");
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  take(grown, 100, "a.c");
  qk_mem_free(shrunk, gone);
  take(split, 10, "a.c");
  take(split, 10, "a.c");
  qk_mem_free(split, whole);
  EXPECT_EQ("0 in 1 of 2", growth("mark"));
}

TEST_F(GrowthFigures, OfAnUnknownSnapshotAreNotTakenForNoGrowth) {
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(kFailed, growth("mask"));
  EXPECT_EQ(5002, qk_mem_error());
  EXPECT_EQ("qkmem: unknown snapshot \"mask\"; is \"mark\" meant?\n",
            testing::internal::GetCapturedStderr());
}

TEST_F(GrowthFigures, OfAFilterWithAMistakeAreNotTakenForNoGrowth) {
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(kFailed, growth("mark", "HANDEL=1"));
  EXPECT_EQ(10041, qk_mem_error());
  EXPECT_EQ(kFailed, growth("mark", "TAG=ABC"));
  EXPECT_EQ(5022, qk_mem_error());
  EXPECT_EQ(kFailed, growth("mark", "FILE"));
  EXPECT_EQ(10043, qk_mem_error());
  EXPECT_EQ(
      "qkmem: qk_mem_growth: unknown keyword 'HANDEL'; is HANDLE meant? There is no answer.\n"
      "qkmem: qk_mem_growth: TAG can't be 'ABC'. There is no answer.\n"
      "qkmem: qk_mem_growth: FILE needs a value. There is no answer.\n",
      testing::internal::GetCapturedStderr());
}

TEST(GrowthFiguresWithoutProfile, AreNotTakenForNoGrowth) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  testing::internal::CaptureStderr();
  EXPECT_EQ(kFailed, growth("mark"));
  EXPECT_EQ(5061, qk_mem_error());
  EXPECT_EQ("qkmem: the profile is off\n", testing::internal::GetCapturedStderr());
}

}  // namespace
