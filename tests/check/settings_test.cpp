#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "qkmem/check.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/failing_runs.h"
#include "tests/kit/profile.h"
#include "tests/kit/program.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

/** Keywords of the checks, their return values, and the checks beside the profile and threads. */
namespace {

using kit::Pool;

char* allocated(int hid, std::size_t size, int line = 7) {
  return static_cast<char*>(qk_mem_imalloc(hid, size, 16, "src/a.c", line));
}

template <class Call>
std::string said(Call call) {
  testing::internal::CaptureStderr();
  call();
  return kit::replaced(testing::internal::GetCapturedStderr(), "process [0-9]+: ", "");
}

/** What is said of options, and the code before it. */
std::string answer_to(const char* options) {
  int code = 0;
  const std::string words = said([&] { code = qk_mem_check_config(options); });
  EXPECT_EQ(code, qk_mem_error());
  return std::to_string(code) + " " + words;
}

TEST(KeywordsOfTheChecks, AreUnderstoodInAnyCase) {
  const kit::Scene scene;
  EXPECT_EQ("0 ", answer_to("guard=32,front Fill quarantine=2M SCAN=1000 HISTORY=10"));
  EXPECT_EQ("0 ", answer_to("FINDINGS=FAIL=7 REPORT=found"));
  EXPECT_EQ("0 ", answer_to(""));
  EXPECT_EQ("0 ", answer_to(nullptr));
}

TEST(KeywordsOfTheChecks, AreNamedWhereTheirFormIsWrong) {
  const kit::Scene scene;
  EXPECT_EQ(
      "10041 qkmem: qk_mem_check_config: unknown keyword 'GUARDS'; is GUARD meant? The rest is "
      "used.\n",
      answer_to("GUARDS"));
  EXPECT_EQ("10042 qkmem: qk_mem_check_config: FILL takes no value. The rest is used.\n",
            answer_to("FILL=1"));
  EXPECT_EQ("10043 qkmem: qk_mem_check_config: SCAN needs a value. The rest is used.\n",
            answer_to("SCAN"));
  EXPECT_EQ(
      "10044 qkmem: qk_mem_check_config: REPORT has a quote that is not closed. The rest is "
      "used.\n",
      answer_to("REPORT='found"));
}

TEST(KeywordsOfTheChecks, AreNamedWhereTheirValueIsNotUnderstood) {
  const kit::Scene scene;
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: GUARD can't be '0'. The rest is used.\n",
            answer_to("GUARD=0"));
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: GUARD can't be '4097'. The rest is used.\n",
            answer_to("GUARD=4097"));
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: GUARD can't be '16,BACK'. The rest is used.\n",
            answer_to("GUARD=16,BACK"));
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: QUARANTINE can't be 'many'. The rest is used.\n",
            answer_to("QUARANTINE=many"));
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: SCAN can't be '0'. The rest is used.\n",
            answer_to("SCAN=0"));
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: BREAK can't be '-1'. The rest is used.\n",
            answer_to("BREAK=-1"));
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: HISTORY can't be 'x'. The rest is used.\n",
            answer_to("HISTORY=x"));
  EXPECT_EQ("5022 qkmem: qk_mem_check_config: FINDINGS can't be 'FAIL=256'. The rest is used.\n",
            answer_to("FINDINGS=FAIL=256"));
}

TEST(LooksOnRequest, NeedTheChecksAndAHandle) {
  const kit::Scene scene;
  const Pool pool;
  EXPECT_EQ(-1, qk_mem_check(0));
  EXPECT_EQ(5061, qk_mem_error());
  ASSERT_EQ(0, qk_mem_check_config("GUARD"));
  EXPECT_EQ(0, qk_mem_check(0));
  EXPECT_EQ(0, qk_mem_check(pool));
  EXPECT_EQ(-1, qk_mem_check(77));
  EXPECT_EQ(5566, qk_mem_error());
  EXPECT_EQ(-1, qk_mem_check(-1));
  EXPECT_EQ(5566, qk_mem_error());
}

TEST(LooksAfterSomeEvents, FindDamageWithoutARelease) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_check_config("GUARD SCAN=10"));
  const Pool pool("", "SE");
  char* const memory = allocated(pool, 24);
  memory[24] = 1;
  const Pool other;
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event 1), "
      "last seen whole at event 1: 01\n",
      said([&] {
        for (int i = 0; i < 12; ++i) allocated(other, 10, 8);
      }));
}

TEST(ChecksBesideLogAndTrace, LeaveTheUsersFigures) {
  kit::Scene scene({"DEBUG", "TRACE", ""});
  ASSERT_EQ(0, qk_mem_check_config("GUARD=64,FRONT FILL QUARANTINE"));
  const Pool pool("", "SE");
  scene.skip_log();
  scene.skip_trace();
  qk_mem_ifree(pool, allocated(pool, 24), "src/b.c", 3);
  void* const memory = qk_mem_icalloc(pool, 3, 5, 16, "src/a.c", 4);
  qk_mem_ifree(pool, qk_mem_irealloc(pool, memory, 100, 16, "src/a.c", 5), "src/b.c", 6);
  EXPECT_EQ("   qk_mem_imalloc:        1 [p1] M 24 a.c:7\n", scene.log("qk_mem_imalloc"));
  EXPECT_EQ("   qk_mem_icalloc:        1 [p1] C 3/5 a.c:4\n", scene.log("qk_mem_icalloc"));
  EXPECT_EQ("   qk_mem_irealloc:       1 [p1] R 100 a.c:5; [p2] C 3/5 a.c:4\n",
            scene.log("qk_mem_irealloc"));
  EXPECT_EQ(
      "   qk_mem_ifree:          1 [p1] F b.c:3; M 24 a.c:7\n"
      "   qk_mem_ifree:          1 [p2] F b.c:6; R 100 a.c:5\n",
      scene.log("qk_mem_ifree"));
  EXPECT_EQ("", scene.trace("MCRF"));
}

TEST(ChecksBesideTheProfile, LeaveItsFigures) {
  std::string plain;
  for (const char* const options : {"", "GUARD=16,FRONT FILL QUARANTINE"}) {
    const kit::Scene scene;
    const kit::Ended ended = kit::run({"", "", "", "SITES PEAK"}, [options] {
      qk_mem_check_config(options);
      const int hid = qk_mem_inew_handle("", "SE", "a.c", 1);
      qk_mem_ifree(hid, qk_mem_imalloc(hid, 24, 16, "a.c", 2), "a.c", 3);
      void* const memory = qk_mem_icalloc(hid, 3, 5, 16, "a.c", 4);
      qk_mem_irealloc(hid, memory, 100, 16, "a.c", 5);
      qk_mem_imalloc(QK_MEM_DATA_HANDLE, 30, 16, "a.c", 6);
    });
    const std::string report =
        kit::replaced(kit::replaced(ended.err, "process [0-9]+", "process"),
                      "\\(event [0-9]+\\)|\\(within [^)]*\\)|[0-9.,]+ s|the profile took .*", "");
    if (plain.empty()) plain = report;
    EXPECT_EQ(plain, report);
    EXPECT_NE(std::string::npos, report.find("a.c:5")) << report;
  }
}

TEST(ChecksBesideTheProfile, AreInItsReport) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  ASSERT_EQ(0, qk_mem_check_config("GUARD"));
  const Pool pool("", "SE");
  char* const memory = allocated(pool, 24);
  memory[24] = 'A';
  EXPECT_NE("", said([&] { qk_mem_ifree(pool, memory, "src/b.c", 12); }));
  EXPECT_NE("", said([&] { qk_mem_ifree(pool, memory, "src/b.c", 20); }));
  EXPECT_EQ(
      "qkmem: nothing is held; 1 allocation of 24 B was watched; peak 24 B at T s (event 1)\n"
      "qkmem: first misuse: 1 byte written behind a block of 24 (event 2)\n"
      "qkmem: misuse and damage\n"
      "  times  what\n"
      "      1  1 byte written behind a block of 24, freed at b.c:12 (event 2), allocated at "
      "a.c:7 by handle 3 SE (event 1), last seen whole at event 1: 41\n"
      "      1  double free at b.c:20: already freed at b.c:12, was allocated at a.c:7\n"
      "qkmem: the profile took M of its own\n",
      kit::text_report("SITES"));
  const std::string json = kit::requested("FORMAT=JSON").text;
  EXPECT_NE(std::string::npos, json.find("\"text\":\"1 byte written behind a block of 24, freed at "
                                         "b.c:12 (event 2), allocated at a.c:7 by handle 3 SE "
                                         "(event 1), last seen whole at event 1: 41\""))
      << json;
}

TEST(ChecksBesideTheProfile, StayWhenItIsSwitchedOnAndOff) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_check_config("GUARD QUARANTINE"));
  const Pool pool("", "SE");
  char* const first = allocated(pool, 24, 7);
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  char* const second = allocated(pool, 24, 8);
  EXPECT_EQ("", kit::profile_errors());
  ASSERT_EQ(0, qk_mem_profile_config(nullptr));
  char* const third = allocated(pool, 24, 9);
  for (char* const memory : {first, second, third}) {
    memory[24] = 1;
    EXPECT_NE("", said([&] { qk_mem_ifree(pool, memory, "src/b.c", 12); }));
  }
  EXPECT_EQ(0, qk_mem_check(0));
}

TEST(AddressesInGuards, AreSaidToBePastTheEndOfABlock) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_check_config("GUARD=16,FRONT"));
  const Pool pool("", "SE");
  char* const memory = allocated(pool, 24);
  char words[200];
  qk_mem_describe(memory + 26, words, sizeof words);
  EXPECT_STREQ("2 bytes past the end of a block of 24 on handle 3 SE, allocated at a.c:7 (event 1)",
               words);
  qk_mem_describe(memory - 2, words, sizeof words);
  EXPECT_STREQ("2 bytes in front of a block of 24 on handle 3 SE, allocated at a.c:7 (event 1)",
               words);
}

/** Allocates, resizes and releases on some handles, one of which all threads share. */
void work(int shared, int rounds) {
  const int own = qk_mem_new_handle("", "");
  const int pieces = qk_mem_new_handle("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE", "");
  for (int i = 0; i < rounds; ++i) {
    for (const int hid : {shared, own, pieces}) {
      void* memory = qk_mem_malloc(hid, 20 + i % 100);
      std::memset(memory, 1, 20);
      memory = qk_mem_realloc(hid, memory, 150);
      std::memset(memory, 2, 150);
      qk_mem_free(hid, memory);
    }
    if (i % 50 == 0) qk_mem_check(0);
  }
  qk_mem_del_handle(pieces);
  qk_mem_del_handle(own);
}

TEST(CheckedThreads, FindNothingInEachOthersMemory) {
  const kit::Scene scene;
  EXPECT_EQ("", said([] {
              ASSERT_EQ(0, qk_mem_check_config("GUARD FILL QUARANTINE=8K SCAN=500"));
              const Pool shared("MULTITHREADED");
              std::vector<std::thread> threads;
              for (int i = 0; i < 4; ++i) threads.emplace_back([&] { work(shared, 200); });
              for (std::thread& thread : threads) thread.join();
              EXPECT_EQ(0, qk_mem_check(0));
              qk_mem_check_config(nullptr);
            }));
}

constinit kit::Program program;

void use_checked_handles() {
  const int plain = program.create_handle("", "AB");
  const int pieces = program.create_handle("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE", "AB");
  for (const int hid : {plain, pieces}) {
    if (hid == 0) continue;
    const int first = program.malloc(hid, 100);
    const int second = program.calloc(hid, 3, 50);
    const int text = program.strdup(hid, "text");
    program.realloc(first, 5000);
    program.realloc(second, 10);
    program.free(first);
    program.free(text);
    program.check();
  }
  if (plain != 0) program.delete_handle(plain);
  if (pieces != 0) program.delete_handle(pieces);
}

TEST(CheckedProgram, SurvivesEachFailingAllocation) {
  kit::expect_no_harm({"EXCEPTIONS", "", ""}, 5, use_checked_handles, [] {
    qk_mem_check_config("GUARD=16,FRONT FILL QUARANTINE REPORT=/dev/null");
  });
}

}  // namespace
