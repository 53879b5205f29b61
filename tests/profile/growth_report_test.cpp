#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::requested;

class GrowthReport : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null")); }

  kit::Scene scene_;
};

void* take(int hid, std::size_t size, const char* file, int line) {
  return qk_mem_imalloc(hid, size, 16, file, line);
}

TEST_F(GrowthReport, ShowsTheLargestGrowthFirstAndShrinkageApart) {
  const Pool server("", "SE");
  const Pool other;
  for (int i = 0; i < 100; ++i) take(server, 100, "same.c", 1);
  take(other, 5000, "large.c", 2);
  void* const queue = take(server, 4096, "queue.c", 3);
  void* const buffer = take(other, 100, "buffer.c", 4);
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  for (int i = 0; i < 410; ++i) take(server, 3000, "http.c", 5);
  take(other, 64, "list.c", 6);
  take(other, 50, "large.c", 2);
  qk_mem_free(server, queue);
  qk_mem_free(other, buffer);
  qk_mem_free(other, take(other, 5, "brief.c", 7));
  EXPECT_EQ(
      "qkmem: 3 sites grew by 1.2 MiB in 412 blocks between \"before\" (event 103, T s) and now "
      "(event 519, T s); 2 shrank by 4.1 KiB\n"
      "     grown  blocks  made     held  handle  site\n"
      "  +1.2 MiB    +410   410  1.2 MiB    3 SE  http.c:5\n"
      "     +64 B      +1     1     64 B       4  list.c:6\n"
      "     +50 B      +1     1  4.9 KiB       4  large.c:2\n"
      "qkmem: shrank\n"
      "     grown  blocks  made  held  handle  site\n"
      "  -4.0 KiB      -1     0   0 B    3 SE  queue.c:3\n"
      "    -100 B      -1     0   0 B       4  buffer.c:4\n"
      "qkmem: 2 sites hold as much as before\n"
      "qkmem: the profile took M of its own\n",
      requested("SINCE=before").text);
}

TEST_F(GrowthReport, SaysIfNothingGrew) {
  const Pool pool;
  void* const memory = take(pool, 10, "a.c", 1);
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  EXPECT_EQ(
      "qkmem: nothing grew between \"before\" (event 1, T s) and now (event 1, T s)\n"
      "qkmem: 1 site holds as much as before\n"
      "qkmem: the profile took M of its own\n",
      requested("SINCE=before").text);
  qk_mem_free(pool, memory);
  EXPECT_EQ(
      "qkmem: nothing grew between \"before\" (event 1, T s) and now (event 2, T s); 1 site shrank "
      "by 10 B\n"
      "qkmem: shrank\n"
      "  grown  blocks  made  held  handle  site\n"
      "  -10 B      -1     0   0 B       3  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      requested("SINCE=before").text);
}

TEST_F(GrowthReport, EndsAtASnapshotIfAskedTo) {
  const Pool pool;
  ASSERT_EQ(0, qk_mem_snapshot("one"));
  void* const memory = take(pool, 10, "a.c", 1);
  ASSERT_EQ(0, qk_mem_snapshot("two"));
  qk_mem_free(pool, memory);
  EXPECT_EQ(
      "qkmem: 1 site grew by 10 B in 1 block between \"one\" (event 0, T s) and \"two\" (event 1, "
      "T s)\n"
      "  grown  blocks  made  held  handle  site\n"
      "  +10 B      +1     1  10 B       3  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      requested("SINCE=one UNTIL=two").text);
  EXPECT_EQ(
      "qkmem: 1 site grew by 10 B in 1 block between the start (event 0, T s) and \"two\" (event "
      "1, T s)\n"
      "  grown  blocks  made  held  handle  site\n"
      "  +10 B      +1     1  10 B       3  a.c:1\n"
      "qkmem: the profile took M of its own\n",
      requested("UNTIL=two").text);
}

TEST_F(GrowthReport, CountsFewerButLargerBlocks) {
  const Pool pool;
  void* small[3];
  for (void*& memory : small) memory = take(pool, 10, "a.c", 1);
  take(pool, 0, "empty.c", 2);
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  for (void* const memory : small) qk_mem_free(pool, memory);
  take(pool, 100, "a.c", 1);
  take(pool, 0, "empty.c", 2);
  EXPECT_EQ(
      "qkmem: 2 sites grew by 70 B in 1 block fewer between \"before\" (event 4, T s) and now "
      "(event 9, T s)\n"
      "  grown  blocks  made   held  handle  site\n"
      "  +70 B      -2     1  100 B       3  a.c:1\n"
      "    0 B      +1     1    0 B       3  empty.c:2\n"
      "qkmem: the profile took M of its own\n",
      requested("SINCE=before").text);
}

TEST_F(GrowthReport, ShowsAsManySitesAsAskedForInTheOrderAskedFor) {
  const Pool pool;
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  take(pool, 1000, "large.c", 1);
  for (int i = 0; i < 3; ++i) take(pool, 10, "many.c", 2);
  for (int i = 0; i < 2; ++i) take(pool, 10, "few.c", 3);
  for (int i = 0; i < 9; ++i) qk_mem_free(pool, take(pool, 500, "few.c", 3));
  EXPECT_EQ(
      "qkmem: 3 sites grew by 1.0 KiB in 6 blocks between \"before\" (event 0, T s) and now (event "
      "24, T s)\n"
      "  grown  blocks  made  held  handle  site\n"
      "  +30 B      +3     3  30 B       3  many.c:2\n"
      "  +20 B      +2    11  20 B       3  few.c:3\n"
      "  and 1 more site (TOP=0 shows all)\n"
      "qkmem: the profile took M of its own\n",
      requested("SINCE=before TOP=2 SORT=BLOCKS").text);
  const std::string by_made = requested("SINCE=before TOP=1 SORT=MADE").text;
  EXPECT_NE(std::string::npos, by_made.find("few.c:3\n  and 2 more sites")) << by_made;
}

TEST_F(GrowthReport, NamesTheSnapshotThatIsMeant) {
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  ASSERT_EQ(0, qk_mem_snapshot("at night"));
  EXPECT_EQ("qkmem: unknown snapshot \"befor\"; is \"before\" meant?\n",
            requested("SINCE=befor").text);
  EXPECT_EQ(5002, requested("SINCE=befor").code);
  EXPECT_EQ(5002, qk_mem_error());
  EXPECT_EQ("qkmem: unknown snapshot \"AT  NIGHT\"; is \"at night\" meant?\n",
            requested("SINCE=before UNTIL='AT  NIGHT'").text);
}

TEST_F(GrowthReport, SaysIfThereAreNoSnapshots) {
  EXPECT_EQ("qkmem: unknown snapshot \"before\"; there is none\n", requested("SINCE=before").text);
}

TEST_F(GrowthReport, RefusesAPeriodThatEndsBeforeItBegins) {
  ASSERT_EQ(0, qk_mem_snapshot("one"));
  ASSERT_EQ(0, qk_mem_snapshot("two"));
  const kit::Requested report = requested("SINCE=two UNTIL=one");
  EXPECT_EQ("qkmem: the snapshot \"one\" is older than \"two\"\n", report.text);
  EXPECT_EQ(5022, report.code);
}

TEST_F(GrowthReport, RefusesAFormThatHasNoGrowth) {
  ASSERT_EQ(0, qk_mem_snapshot("one"));
  const kit::Requested report = requested("SINCE=one FORMAT=OPENMETRICS");
  EXPECT_EQ("qkmem: OPENMETRICS has no form for growth\n", report.text);
  EXPECT_EQ(5022, report.code);
}

TEST_F(GrowthReport, ShowsNamesOfAnyBytesInOneLine) {
  ASSERT_EQ(0, qk_mem_snapshot("a\n\"gr\xFCn\""));
  const std::string text = requested("SINCE='a\n\"gr\xFCn\"'").text;
  EXPECT_EQ(
      "qkmem: nothing grew between \"a?\"gr\uFFFDn\"\" (event 0, T s) and now (event 0, T s)\n",
      text.substr(0, text.find('\n') + 1));
}

/** The lines of a JSON report but the first, which differs from run to run. */
std::string later_lines(const std::string& json) { return json.substr(json.find('\n') + 1); }

TEST_F(GrowthReport, HasTheSameFiguresAsJson) {
  const Pool pool("", "AB");
  const Pool other("", "CD");
  void* const memory = take(pool, 1000, "b.c", 2);
  take(pool, 5, "same.c", 3);
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  take(pool, 100, "a.c", 1);
  take(other, 10, "a.c", 1);
  qk_mem_free(pool, memory);
  qk_mem_free(other, take(other, 7, "brief.c", 4));
  const std::string json = requested("SINCE=before FORMAT=JSON").text;
  EXPECT_EQ(
      "\"handles\":[\n"
      "{\"handle\":3,\"tag\":\"AB\",\"grown_bytes\":-900,\"grown_blocks\":0,\"made_bytes\":100,"
      "\"made_blocks\":1},\n"
      "{\"handle\":4,\"tag\":\"CD\",\"grown_bytes\":10,\"grown_blocks\":1,\"made_bytes\":17,"
      "\"made_blocks\":2}],\n"
      "\"tags\":[\n"
      "{\"tag\":\"AB\",\"grown_bytes\":-900,\"grown_blocks\":0,\"made_bytes\":100,"
      "\"made_blocks\":1},\n"
      "{\"tag\":\"CD\",\"grown_bytes\":10,\"grown_blocks\":1,\"made_bytes\":17,"
      "\"made_blocks\":2}],\n"
      "\"sites\":[\n"
      "{\"file\":\"a.c\",\"line\":1,\"handle\":3,\"tag\":\"AB\",\"grown_bytes\":100,"
      "\"grown_blocks\":1,\"made_bytes\":100,\"made_blocks\":1,\"live_bytes\":100,"
      "\"live_blocks\":1},\n"
      "{\"file\":\"a.c\",\"line\":1,\"handle\":4,\"tag\":\"CD\",\"grown_bytes\":10,"
      "\"grown_blocks\":1,\"made_bytes\":10,\"made_blocks\":1,\"live_bytes\":10,"
      "\"live_blocks\":1},\n"
      "{\"file\":\"brief.c\",\"line\":4,\"handle\":4,\"tag\":\"CD\",\"grown_bytes\":0,"
      "\"grown_blocks\":0,\"made_bytes\":7,\"made_blocks\":1,\"live_bytes\":0,"
      "\"live_blocks\":0},\n"
      "{\"file\":\"b.c\",\"line\":2,\"handle\":3,\"tag\":\"AB\",\"grown_bytes\":-1000,"
      "\"grown_blocks\":-1,\"made_bytes\":0,\"made_blocks\":0,\"live_bytes\":0,"
      "\"live_blocks\":0}]}",
      later_lines(json));
  EXPECT_NE(std::string::npos, json.find("\"grown_bytes\":-890,\"grown_blocks\":1,"
                                         "\"made_bytes\":117,\"made_blocks\":3,\n"));
}

TEST_F(GrowthReport, HasNamesOfAnyBytesAsJson) {
  ASSERT_EQ(0, qk_mem_snapshot("a\n\"b\"\\"));
  const std::string json = requested("SINCE='a\n\"b\"\\' FORMAT=JSON").text;
  EXPECT_NE(std::string::npos, json.find(R"("since":{"name":"a\n\"b\"\\","event":0,"time_ns":)"))
      << json;
  EXPECT_NE(std::string::npos, json.find(R"("until":{"name":null,"event":0,"time_ns":)")) << json;
}

TEST_F(GrowthReport, SelectsHandlesTagsAndFiles) {
  const Pool one("", "AB");
  const Pool two("", "CD");
  const Pool untagged;
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  take(one, 10, "parser.c", 1);
  take(two, 20, "parser.c", 1);
  take(two, 30, "list.c", 2);
  take(untagged, 40, "list.c", 2);
  EXPECT_EQ("parser.c:1 +10 in +1", kit::growth("SINCE=before HANDLE=3"));
  EXPECT_EQ("list.c:2 +30 in +1 parser.c:1 +20 in +1", kit::growth("SINCE=before TAG=cd"));
  EXPECT_EQ("list.c:2 +40 in +1", kit::growth("SINCE=before TAG=NONE"));
  EXPECT_EQ("parser.c:1 +10 in +1 parser.c:1 +20 in +1", kit::growth("FILE=pars"));
  EXPECT_EQ("list.c:2 +30 in +1", kit::growth("FILE=l*.c TAG=CD"));
  EXPECT_EQ("", kit::growth("SINCE=before FILE=li?"));
}

TEST(RequestedReport, IsTheOneInForceWithoutOptions) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("TOP=1 REPORT=/dev/null"));
  const Pool pool;
  take(pool, 10, "a.c", 1);
  take(pool, 20, "a.c", 2);
  const std::string expected =
      "qkmem: 2 sites hold 30 B in 2 blocks; peak 30 B at T s (event 2)\n"
      "  bytes  blocks  share  made  handle  site\n"
      "   20 B       1    67%     1       3  a.c:2\n"
      "  and 1 more site (TOP=0 shows all)\n"
      "qkmem: the profile took M of its own\n";
  EXPECT_EQ(expected, requested(nullptr).text);
  EXPECT_EQ(expected, requested("").text);
  EXPECT_EQ(0, requested("").code);
}

TEST(RequestedReport, HasOptionsOfItsOwnThatChangeNoOthers) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("TOP=1 REPORT=/dev/null"));
  const Pool pool;
  take(pool, 10, "a.c", 1);
  take(pool, 20, "a.c", 2);
  EXPECT_NE(std::string::npos, requested("TOP=2").text.find("a.c:1\n"));
  EXPECT_EQ(0U, requested("FORMAT=JSON").text.find("{\"program\":"));
  EXPECT_NE(std::string::npos, requested("format=openmetrics").text.find("\nqkmem_peak_bytes{"));
  EXPECT_EQ(std::string::npos, requested("").text.find("a.c:1\n"));
}

TEST(RequestedReport, NamesWordsThatAreNotUnderstoodAndUsesTheRest) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null"));
  const Pool pool;
  take(pool, 10, "a.c", 1);
  testing::internal::CaptureStderr();
  const kit::Requested report = requested("SINSE=x FORMAT=XML EVERY=60 TOP=1");
  EXPECT_EQ(
      "qkmem: qk_mem_profile_report: unknown keyword 'SINSE'; is SINCE meant? The rest is used.\n"
      "qkmem: qk_mem_profile_report: FORMAT can't be 'XML'. The rest is used.\n"
      "qkmem: qk_mem_profile_report: unknown keyword 'EVERY'; is PEAK meant? The rest is used.\n",
      testing::internal::GetCapturedStderr());
  EXPECT_EQ(10041, report.code);
  EXPECT_EQ(10041, qk_mem_error());
  EXPECT_EQ(0U, report.text.find("qkmem: 1 site holds 10 B in 1 block; peak 10 B at T s"));
}

TEST(RequestedReport, NamesValuesThatSelectNothing) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(5022, requested("HANDLE=0 HANDLE=x TAG=ABC").code);
  EXPECT_EQ(
      "qkmem: qk_mem_profile_report: HANDLE can't be '0'. The rest is used.\n"
      "qkmem: qk_mem_profile_report: HANDLE can't be 'x'. The rest is used.\n"
      "qkmem: qk_mem_profile_report: TAG can't be 'ABC'. The rest is used.\n",
      testing::internal::GetCapturedStderr());
}

TEST(RequestedReport, SaysIfTheProfileIsOff) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  EXPECT_EQ("qkmem: the profile is off\n", requested(nullptr).text);
  EXPECT_EQ(5061, requested("SINCE=x").code);
}

TEST(RequestedReport, CanBeWrittenByThreadsAtOnce) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("STACKS REPORT=/dev/null"));
  const Pool pool;
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  take(pool, 10, "a.c", 1);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([thread] {
      const char* const options[] = {"SINCE=before", "SINCE=before FORMAT=PPROF", ""};
      std::FILE* const nowhere = std::fopen("/dev/null", "w");
      for (int i = 0; i < 10; ++i) EXPECT_EQ(0, qk_mem_profile_report(nowhere, options[thread]));
      std::fclose(nowhere);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(RequestedReport, NeedsAStreamThatCanBeWritten) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null"));
  EXPECT_EQ(5014, qk_mem_profile_report(nullptr, ""));
  EXPECT_EQ(5014, qk_mem_error());
  std::FILE* const unwritable = std::fopen("/dev/null", "r");
  EXPECT_EQ(5009, qk_mem_profile_report(unwritable, ""));
  EXPECT_EQ(5009, qk_mem_error());
  std::fclose(unwritable);
}

}  // namespace
