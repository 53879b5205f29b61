#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <string_view>

#include "profile/labels.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "qkmem/qkmem.hpp"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::text_report;

class CallStacks : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("STACKS")); }
  void TearDown() override { EXPECT_EQ("", kit::profile_errors()); }

  kit::Scene scene_;
};

[[gnu::noinline]] void* common_helper(int hid, std::size_t size) {
  void* const memory = qk_mem_malloc(hid, size);
  EXPECT_NE(nullptr, memory);
  return memory;
}

[[gnu::noinline]] void careful_caller(int hid) {
  void* const memory = common_helper(hid, 10);
  qk_mem_free(hid, memory);
}

[[gnu::noinline]] void forgetful_caller(int hid) {
  void* const memory = common_helper(hid, 3000);
  EXPECT_NE(nullptr, memory);
}

/** The lines of a report that have a text in them. */
int lines_with(const std::string& report, std::string_view text) {
  int lines = 0;
  for (std::size_t at = report.find(text); at != std::string::npos;
       at = report.find(text, report.find('\n', at))) {
    ++lines;
  }
  return lines;
}

TEST_F(CallStacks, TellTheCallersOfOneLineApart) {
  const Pool pool;
  for (int i = 0; i < 100; ++i) {
    careful_caller(pool);
    if (i % 10 == 0) forgetful_caller(pool);
  }
  const std::string report = text_report("STACKS");
  EXPECT_NE(std::string::npos, report.find("29.3 KiB      10   100%")) << report;
  EXPECT_NE(std::string::npos, report.find("common_helper")) << report;
}

TEST_F(CallStacks, OfALineAreOneRowWithTheFramesOfTheLargest) {
  const Pool pool;
  forgetful_caller(pool);
  common_helper(pool, 10);
  const std::string report = text_report("STACKS");
  EXPECT_NE(std::string::npos, report.find("qkmem: 1 site holds 2.9 KiB in 2 blocks")) << report;
  EXPECT_NE(std::string::npos, report.find("forgetful_caller")) << report;
}

TEST_F(CallStacks, NameTheCallerOfAFoldedAdapter) {
  const Pool pool;
  forgetful_caller(pool);
  for (int i = 0; i < 3; ++i) common_helper(pool, 10);
  const std::string report = text_report("STACKS SKIP=common_helper");
  EXPECT_NE(std::string::npos, report.find("qkmem: 2 sites hold")) << report;
  EXPECT_EQ(0, lines_with(report, "common_helper")) << report;
  EXPECT_EQ(1, lines_with(report, "forgetful_caller")) << report;
}

TEST_F(CallStacks, AreAsDeepAsAskedForEvenInStaticPrograms) {
  ASSERT_EQ(0, qk_mem_profile_config("STACKS=2"));
  const Pool pool;
  forgetful_caller(pool);
  EXPECT_EQ(1, lines_with(text_report("STACKS=2"), "forgetful_caller"));
}

TEST_F(CallStacks, AreNotKeptUnlessAskedFor) {
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  const Pool pool;
  forgetful_caller(pool);
  common_helper(pool, 10);
  const std::string report = text_report("SITES");
  EXPECT_EQ(0, lines_with(report, "forgetful_caller")) << report;
  EXPECT_NE(std::string::npos, report.find("qkmem: 1 site holds 2.9 KiB in 2 blocks")) << report;
}

TEST_F(CallStacks, AtASignalHaveModulesAndOffsets) {
  const kit::Ended ended = kit::run({"", "", "", "STACKS"}, [] {
    const int hid = qk_mem_new_handle("", "");
    forgetful_caller(hid);
    raise(SIGTERM);
  });
  EXPECT_NE(std::string::npos, ended.err.find("profile_tests+0x")) << ended.err;
}

TEST(Labels, TellTheAllocationsOfOneLineApart) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  const Pool pool;
  const auto take = [&](std::size_t size) { return qk_mem_imalloc(pool, size, 16, "a.c", 1); };
  take(1);
  {
    const qk::Site catalogue("loading the catalogue");
    take(10);
    qk_mem_push_site("images");
    take(100);
    qk_mem_pop_site();
    take(20);
  }
  take(2);
  qk_mem_pop_site();
  EXPECT_EQ(
      "qkmem: 3 sites hold 133 B in 5 blocks; peak 133 B at T s (event 5)\n"
      "  bytes  blocks  share  made  handle  site\n"
      "  100 B       1    75%     1       3  a.c:1 [loading the catalogue > images]\n"
      "   30 B       2    23%     2       3  a.c:1 [loading the catalogue]\n"
      "    3 B       2     2%     2       3  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      text_report("SITES"));
}

TEST(Labels, StayPairedWhenThereIsNoMemoryForThem) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("MAX=0"));
  const std::string name = "label ";
  for (int i = 0; i < 2000; ++i) qk_mem_push_site((name + std::to_string(i)).c_str());
  for (int i = 0; i < 2000; ++i) qk_mem_pop_site();
  EXPECT_EQ(0U, qk::mem::profile::label_of_thread());
}

}  // namespace
