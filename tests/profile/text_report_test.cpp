#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::text_report;
using qk::mem::profile::Occasion;

class TextReport : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES")); }

  kit::Scene scene_;
};

void* take(int hid, std::size_t size, const char* file, int line) {
  return qk_mem_imalloc(hid, size, 16, file, line);
}

TEST_F(TextReport, SaysHowMuchWasWatchedIfNothingIsHeld) {
  const Pool pool;
  void* const memory = take(pool, 2048, "a.c", 1);
  qk_mem_free(pool, memory);
  EXPECT_EQ(
      "qkmem: nothing is held; 1 allocation of 2.0 KiB was watched; peak 2.0 KiB at T s (event 1)\n"
      "qkmem: the profile took M of its own\n",
      text_report("SITES"));
}

TEST_F(TextReport, ShowsTheLargestSitesFirst) {
  const Pool pool("", "SE");
  const Pool other;
  for (int i = 0; i < 206; ++i) take(pool, 6617, "src/http.cpp", 214);
  for (int i = 0; i < 1200; ++i) take(other, 10, "src/list.cpp", 30);
  for (int i = 0; i < 625; ++i) qk_mem_free(pool, take(pool, 6617, "src/http.cpp", 214));
  take(QK_MEM_DATA_HANDLE, 1, "main.c", 7);
  EXPECT_EQ(
      "qkmem: 3 sites hold 1.3 MiB in 1,407 blocks; peak 1.3 MiB at T s (event 1,407)\n"
      "     bytes  blocks  share   made  handle  site\n"
      "   1.3 MiB     206    99%    831    3 SE  http.cpp:214\n"
      "  11.7 KiB   1,200    <1%  1,200       4  list.cpp:30\n"
      "       1 B       1    <1%      1       2  main.c:7\n"
      "qkmem: the profile took M of its own\n",
      text_report("SITES"));
}

TEST_F(TextReport, ShowsAsManySitesAsAskedFor) {
  const Pool pool;
  for (int line = 1; line <= 30; ++line) {
    take(pool, static_cast<std::size_t>(line) * 10, "many.c", line);
  }
  EXPECT_EQ(
      "qkmem: 30 sites hold 4.5 KiB in 30 blocks; peak 4.5 KiB at T s (event 30)\n"
      "  bytes  blocks  share  made  handle  site\n"
      "  300 B       1     6%     1       3  many.c:30\n"
      "  290 B       1     6%     1       3  many.c:29\n"
      "  and 28 more sites (TOP=0 shows all)\n"
      "qkmem: the profile took M of its own\n",
      text_report("TOP=2"));
  EXPECT_NE(std::string::npos, text_report("TOP=0").find("many.c:1\n"));
}

TEST_F(TextReport, SortsAsAskedFor) {
  const Pool pool;
  take(pool, 1000, "big.c", 1);
  for (int i = 0; i < 3; ++i) take(pool, 10, "many.c", 2);
  EXPECT_EQ(
      "qkmem: 2 sites hold 1.0 KiB in 4 blocks; peak 1.0 KiB at T s (event 4)\n"
      "    bytes  blocks  share  made  handle  site\n"
      "     30 B       3     3%     3       3  many.c:2\n"
      "  1,000 B       1    97%     1       3  big.c:1\n"
      "qkmem: the profile took M of its own\n",
      text_report("SORT=BLOCKS"));
}

TEST_F(TextReport, ShowsWhatWasHeldAtThePeak) {
  const Pool pool;
  take(pool, 100, "kept.c", 1);
  qk_mem_free(pool, take(pool, 5000, "transient.c", 2));
  take(pool, 10, "late.c", 3);
  EXPECT_EQ(
      "qkmem: 2 sites hold 110 B in 2 blocks; peak 5.0 KiB at T s (event 2)\n"
      "  bytes  blocks  share  made  handle  site\n"
      "  100 B       1    91%     1       3  kept.c:1\n"
      "   10 B       1     9%     1       3  late.c:3\n"
      "qkmem: held at the peak\n"
      "  at peak  share    now  handle  site\n"
      "  4.9 KiB    98%    0 B       3  transient.c:2\n"
      "    100 B     2%  100 B       3  kept.c:1\n"
      "qkmem: the profile took M of its own\n",
      text_report("PEAK"));
}

TEST_F(TextReport, ShowsChurn) {
  const Pool pool;
  for (int i = 0; i < 1000; ++i) qk_mem_free(pool, take(pool, 100, "hot.c", 1));
  EXPECT_EQ(
      "qkmem: nothing is held; 1,000 allocations of 97.7 KiB were watched; peak 100 B at T s "
      "(event 1)\n"
      "qkmem: churn, blocks that were freed within 16 events\n"
      "  freed soon   made  bytes made  mean life  handle  site\n"
      "       1,000  1,000    97.7 KiB          1       3  hot.c:1\n"
      "qkmem: the profile took M of its own\n",
      text_report("SITES"));
}

TEST_F(TextReport, SetsMemoryOfAutofreeHandlesApartAtTheEnd) {
  const Pool pool("AUTOFREE");
  take(pool, 100, "a.c", 1);
  EXPECT_EQ(
      "qkmem: nothing is held; 1 allocation of 100 B was watched; peak 100 B at T s (event 1)\n"
      "qkmem: 100 B in 1 block of AUTOFREE handles go with them\n"
      "qkmem: the profile took M of its own\n",
      text_report("SITES", Occasion::kEnd));
  EXPECT_EQ(
      "qkmem: 1 site holds 100 B in 1 block; peak 100 B at T s (event 1)\n"
      "  bytes  blocks  share  made  handle  site\n"
      "  100 B       1   100%     1       3  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      text_report("SITES"));
}

TEST(FinalReport, IsWrittenAfterAllOtherOutput) {
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"SUMMARY LOG=STDERR", "", "", "SITES"}, [] {
    const int hid = qk_mem_new_handle("AUTOFREE", "AB");
    take(hid, 100, "a.c", 1);
    take(QK_MEM_DATA_HANDLE, 50, "b.c", 2);
  });
  const std::size_t profile =
      ended.err.find("qkmem: 1 site still holds 50 B in 1 block; peak 150 B");
  ASSERT_NE(std::string::npos, profile) << ended.err;
  EXPECT_EQ(std::string::npos, ended.err.find("qk_mem_cleanup", profile));
  EXPECT_NE(std::string::npos, ended.err.find("qk_mem_cleanup"));
}

TEST(FinalReport, IsMadeAtASignalToo) {
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "SITES"}, [] {
    take(QK_MEM_DATA_HANDLE, 50, "b.c", 2);
    raise(SIGTERM);
  });
  EXPECT_EQ(SIGTERM, ended.signal);
  EXPECT_NE(std::string::npos, ended.err.find("qkmem: 1 site still holds 50 B in 1 block"))
      << ended.err;
}

TEST(FinalReport, GoesToAFileNamedAfterTheProcess) {
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "SITES REPORT=memory.%i.txt"},
                                    [] { take(QK_MEM_DATA_HANDLE, 50, "b.c", 2); });
  EXPECT_EQ("", ended.err);
  EXPECT_EQ(0U, kit::contents("memory.1.txt").find("qkmem: 1 site still holds 50 B in 1 block"));
}

TEST(FinalReport, ThatCannotBeWrittenIsToldOnce) {
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "SITES REPORT=missing/report"},
                                    [] { take(QK_MEM_DATA_HANDLE, 50, "b.c", 2); });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("qkmem: no report in 'missing/report': No such file or directory\n", ended.err);
}

TEST(FinalReport, CanGoToTheLog) {
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"EXCEPTIONS LOG=qkmem.log", "", "", "SITES REPORT=LOG"},
                                    [] { take(QK_MEM_DATA_HANDLE, 50, "b.c", 2); });
  EXPECT_EQ("", ended.err);
  EXPECT_NE(std::string::npos, ended.log.find("qkmem: 1 site still holds 50 B in 1 block"));
}

}  // namespace
