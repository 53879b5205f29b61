#include "diag/log.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <stdio_ext.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::Ended;
using kit::Scene;

/** Opens an unbuffered log, "a.log". */
void open_log() {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("EXCEPTIONS LOG=a.log FLUSH", &status), 0);
}

TEST(Log, DropsEveryLineWhileThereIsNone) {
  const Scene scene;
  const Ended ended = kit::run({}, [] {
    if (qk_mem_write_log("   main: ERROR: %d\n", 7) != 0) std::puts("not dropped");
    qk_mem_ifree(400, nullptr, "app.c", 1);
    qk_mem_idel_handle(2, "app.c", 2);
  });
  EXPECT_EQ(ended.out + ended.err, "");
  EXPECT_EQ(ended.exit_code, 0);
}

TEST(Log, DropsEveryLineUnderLogNone) {
  const Scene scene;
  const Ended ended = kit::run({"DEBUG LOG=NONE", "", ""}, [] {
    qk_mem_idel_handle(2, "app.c", 2);
    qk_mem_init();
  });
  EXPECT_EQ(ended.out + ended.err + ended.log, "");
}

TEST(Log, WritesLinesAndReturnsTheirLength) {
  const Scene scene;
  open_log();
  EXPECT_EQ(qk_mem_write_log("   %s: %3d [%.*zx] %c %zu %zd\n", "main", 7, 16, std::size_t{0xbeef},
                             'M', std::size_t{100}, ssize_t{-3}),
            41);
  EXPECT_EQ(qk_mem_write_log("%s", ""), 0);
  EXPECT_EQ(contents("a.log"), "   main:   7 [000000000000beef] M 100 -3\n");
}

TEST(Log, GetsStagedLinesOnlyWhenTheyAreCommitted) {
  const Scene scene;
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("EXCEPTIONS LOG=a.log", &status), 0);
  qk_mem_write_log("one\n");
  qk::mem::stage_lines();
  qk_mem_write_log("two\n");
  std::fflush(Qk_mem_log);
  EXPECT_EQ(contents("a.log"), "one\n");
  qk::mem::commit_lines();
  qk_mem_write_log("three\n");
  std::fflush(Qk_mem_log);
  EXPECT_EQ(contents("a.log"), "one\ntwo\nthree\n");
}

TEST(Log, HasItsBufferBeforeTheFirstLine) {
  const Scene scene;
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("EXCEPTIONS LOG=a.log", &status), 0);
  FILE* other = std::fopen("b.log", "w");
  ASSERT_NE(other, nullptr);
  std::fputs("x", other);
  EXPECT_EQ(__fbufsize(Qk_mem_log), __fbufsize(other));
  EXPECT_EQ(__flbf(Qk_mem_log), __flbf(other));
  const auto used = mallinfo2().uordblks;
  qk_mem_write_log("first\n");
  EXPECT_EQ(mallinfo2().uordblks, used);
  EXPECT_EQ(contents("a.log"), "");
  std::fclose(other);
}

TEST(Log, HandsStagedLinesOverAtOnceInTheirOrder) {
  const Scene scene;
  open_log();
  qk_mem_write_log("before\n");
  qk::mem::stage_lines();
  qk_mem_write_log("first\n");
  qk_mem_fprintf(Qk_mem_log, "second\n");
  EXPECT_EQ(contents("a.log"), "before\n");
  qk::mem::commit_lines();
  EXPECT_EQ(contents("a.log"), "before\nfirst\nsecond\n");
  qk_mem_write_log("after\n");
  EXPECT_EQ(contents("a.log"), "before\nfirst\nsecond\nafter\n");
}

TEST(Log, WritesZeroBytesAndWhatFollowsThem) {
  const Scene scene;
  open_log();
  EXPECT_EQ(qk_mem_write_log("type %c, line %d\n", '\0', 12), 16);
  EXPECT_EQ(contents("a.log"), std::string("type \0, line 12\n", 16));
}

TEST(Log, WritesALineOf1023CharactersWhole) {
  const Scene scene;
  open_log();
  const std::string text(1022, 'x');
  EXPECT_EQ(qk_mem_write_log("%s\n", text.c_str()), 1023);
  EXPECT_EQ(contents("a.log"), text + "\n");
}

TEST(Log, CutsALongerLineAndKeepsItsNewline) {
  const Scene scene;
  open_log();
  std::string expected;
  for (const std::size_t length : {1023U, 1024U, 5000U}) {
    EXPECT_EQ(qk_mem_write_log("%s\n", std::string(length, 'x').c_str()), 1023);
    expected += std::string(1022, 'x') + "\n";
    EXPECT_EQ(contents("a.log"), expected);
  }
}

TEST(Log, CutsLinesOfRoutinesToo) {
  const Scene scene;
  open_log();
  qk_mem_init();
  const std::string before = contents("a.log");
  const std::string file(2000, 'f');
  qk_mem_idel_handle(2, file.c_str(), 7);
  const std::string start = "   qk_mem_idel_handle: ERROR: del_handle of QK_MEM_DATA_HANDLE at ";
  EXPECT_EQ(contents("a.log"), before + start + std::string(1022 - start.size(), 'f') + "\n");
}

TEST(Log, WritesNothingOfALineThatCannotBeFormatted) {
  const Scene scene;
  open_log();
  const wchar_t not_in_this_locale[] = {0x100, 0};
  EXPECT_LT(qk_mem_write_log("before %ls\n", not_in_this_locale), 0);
  EXPECT_LT(qk_mem_fprintf(Qk_mem_log, "before %ls\n", not_in_this_locale), 0);
  EXPECT_EQ(contents("a.log"), "");
}

TEST(Log, AllocatesNothing) {
  const Scene scene;
  open_log();
  kit::fail_all_requests();
  const int length = qk_mem_write_log("   %s: %d\n", "main", 7);
  kit::let_succeed();
  EXPECT_EQ(length, 11);
  EXPECT_FALSE(kit::has_failed());
}

TEST(Log, KeepsLinesOfSeveralThreadsWhole) {
  const Scene scene;
  open_log();
  std::vector<std::thread> threads;
  for (char name = 'a'; name <= 'd'; ++name) {
    threads.emplace_back([name] {
      for (int i = 0; i < 200; ++i) qk_mem_write_log("%s\n", std::string(100, name).c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::map<std::string, int> lines;
  std::ifstream in("a.log");
  for (std::string line; std::getline(in, line);) ++lines[line];
  EXPECT_EQ(lines, (std::map<std::string, int>{{std::string(100, 'a'), 200},
                                               {std::string(100, 'b'), 200},
                                               {std::string(100, 'c'), 200},
                                               {std::string(100, 'd'), 200}}));
}

TEST(Fprintf, WritesTheSameToAnyStream) {
  const Scene scene;
  FILE* stream = std::fopen("other", "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(qk_mem_fprintf(stream, "%d%c|\n", 12, '\0'), 5);
  EXPECT_EQ(qk_mem_fprintf(stream, "%s\n", std::string(1023, 'x').c_str()), 1023);
  std::fclose(stream);
  EXPECT_EQ(contents("other"), std::string("12\0|\n", 5) + std::string(1022, 'x') + "\n");
}

TEST(Fprintf, NeedsNoLog) {
  const Scene scene;
  const Ended ended = kit::run({}, [] { qk_mem_fprintf(stdout, "hello\n"); });
  EXPECT_EQ(ended.out, "hello\n");
}

TEST(Fprintf, ReturnsANegativeNumberIfTheStreamFails) {
  const Scene scene;
  FILE* stream = std::fopen("/dev/full", "w");
  ASSERT_NE(stream, nullptr);
  std::setbuf(stream, nullptr);
  EXPECT_LT(qk_mem_fprintf(stream, "hello\n"), 0);
  std::fclose(stream);
}

}  // namespace
