#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/registry.h"
#include "core/switches.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "tests/kit/scene.h"
#include "tests/kit/status.h"

namespace {

using kit::contents;
using kit::Ended;
using kit::Environment;
using kit::Scene;

/** Sets options and returns the status as text. The call must return the status's code. */
std::string set_options(const char* options) {
  qk::Status status;
  const int result = qk_mem_options(options, &status);
  EXPECT_EQ(result, status.code);
  return kit::text_of(status);
}

constexpr char kSuccess[] = "0 details 0 0 numbers 0 0 subject [] arguments [] []";
constexpr char kHeadings[] =
    "Sequence\tHandle\tType\tAddress\tNum\tSize\tHandle Size\tFile\tLine\tCurrent\tHeap\tUnknown\tChange\tGrowth\tDifference\n";

/** The first line of a file in the current folder. Flushes the trace file first. */
std::string first_line(const char* name) {
  if (Qk_mem_db != nullptr) std::fflush(Qk_mem_db);
  const std::string text = contents(name);
  return text.substr(0, text.find('\n') + 1);
}

TEST(Options, TurnHeapsizeOnOrOffInEachCall) {
  const Scene scene;
  EXPECT_EQ(Qk_mem_opts, 0U);
  EXPECT_EQ(set_options("HEAPSIZE"), kSuccess);
  EXPECT_EQ(Qk_mem_opts, 1U);
  for (const char* options : {"", "FLUSH", "DB", " ", "NONSENSE", "HEAPSIZE NONSENSE"}) {
    set_options("heapsize");
    EXPECT_EQ(Qk_mem_opts, 1U);
    set_options(options);
    EXPECT_EQ(Qk_mem_opts, 0U) << options;
  }
}

TEST(Options, AreReadFromTheEnvironmentIfEmpty) {
  const Scene scene({"", "HEAPSIZE", ""});
  EXPECT_EQ(set_options("FLUSH"), kSuccess);
  EXPECT_EQ(Qk_mem_opts, 0U);
  EXPECT_EQ(set_options(""), kSuccess);
  EXPECT_EQ(Qk_mem_opts, 1U);
  unsetenv("QK_MEM_OPTIONS");
  EXPECT_EQ(set_options(""), kSuccess);
  EXPECT_EQ(Qk_mem_opts, 0U);
}

TEST(Options, AreReadFromTheEnvironmentIfNull) {
  const Scene scene({"", "HEAPSIZE", ""});
  qk_mem_init();
  Qk_mem_opts = 0;
  EXPECT_EQ(set_options(nullptr), kSuccess);
  EXPECT_EQ(Qk_mem_opts, 1U);
}

TEST(Options, ReturnAnOldFailureInTheStatus) {
  const Scene scene;
  for (const char* options : {"", "HEAPSIZE", "DB FLUSH"}) {
    qk::Status status = kit::used_status();
    EXPECT_EQ(qk_mem_options(options, &status), 77) << options;
    EXPECT_EQ(status.code, 77) << options;
    EXPECT_STREQ(status.arg1, "old") << options;
  }
}

TEST(Options, ZeroTheDetailsOfAnOldFailureOnRefusal) {
  const Scene scene;
  qk::Status status = kit::used_status();
  EXPECT_EQ(qk_mem_options("NONSENSE", &status), 10041);
  EXPECT_EQ(status.detail1, 0);
  EXPECT_EQ(status.detail2, 0);
  EXPECT_STREQ(status.arg1, "NONSENSE");
}

TEST(Options, NameAnInvalidWord) {
  const Scene scene("TRACE");
  const struct {
    const char* options;
    const char* code;
    const char* word;
  } cases[] = {
      {"DB NONSENSE", "10041", "NONSENSE"},
      {"HEAP", "10041", "HEAP"},
      {"HEAPSIZ", "10041", "HEAPSIZ"},
      {"D", "10041", "D"},
      {"FLUS", "10041", "FLUS"},
      {"HEAPSIZE=1", "10042", "HEAPSIZE"},
      {"DB='open", "10044", "DB"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(set_options(c.options),
              std::string(c.code) + " details 0 0 numbers 0 0 subject [] arguments [" + c.word +
                  "] [] at qkmem.cpp(qk_mem_options):# on this host")
        << c.options;
    EXPECT_EQ(Qk_mem_db, nullptr) << c.options;
  }
}

TEST(Options, MayHave256Characters) {
  const Scene scene;
  EXPECT_EQ(set_options(("HEAPSIZE" + std::string(248, ' ')).c_str()), kSuccess);
  EXPECT_EQ(Qk_mem_opts, 1U);
}

TEST(Options, AreRefusedWith257Characters) {
  const Scene scene;
  set_options("HEAPSIZE");
  EXPECT_EQ(set_options(("HEAPSIZE" + std::string(249, ' ')).c_str()),
            "10037 details 0 0 numbers 257 256 subject [] arguments [options] [] "
            "at qkmem.cpp(qk_mem_options):# on this host");
  EXPECT_EQ(Qk_mem_opts, 0U);
}

TEST(Options, AreCutAt256CharactersInTheEnvironment) {
  const Scene scene(Environment{"", "HEAPSIZE" + std::string(300, ' ') + "NONSENSE", ""});
  qk_mem_init();
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(Qk_mem_opts, 1U);
  EXPECT_EQ(set_options(""), kSuccess);
  EXPECT_EQ(Qk_mem_opts, 1U);
}

TEST(Options, DoNothingWithoutAStatus) {
  const Scene scene;
  EXPECT_EQ(qk_mem_options("HEAPSIZE", nullptr), 10047);
  EXPECT_EQ(Qk_mem_opts, 0U);
}

TEST(Options, StartTheLibraryUp) {
  const Scene scene;
  EXPECT_EQ(set_options("HEAPSIZE"), kSuccess);
  EXPECT_EQ(Qk_mem_initialized, 1);
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

TEST(Options, OpenTheTraceFileUnderDb) {
  const Scene scene("TRACE");
  std::ofstream("qkmem.tdf") << "what an earlier run wrote\n";
  EXPECT_EQ(set_options("DB"), kSuccess);
  EXPECT_EQ(first_line("qkmem.tdf"), kHeadings);
}

TEST(Options, OpenTheTraceFileThatDbNames) {
  const Scene scene("TRACE");
  EXPECT_EQ(set_options("HEAPSIZE DB='my run.tdf'"), kSuccess);
  EXPECT_EQ(first_line("my run.tdf"), kHeadings);
  EXPECT_FALSE(std::filesystem::exists("qkmem.tdf"));
  EXPECT_EQ(Qk_mem_opts, 1U);
}

TEST(Options, OpenNoTraceFileWithoutDebugging) {
  const Scene scene;
  const Ended ended = kit::run({"", "DB", ""}, [] {
    qk_mem_init();
    set_options("DB");
    qk::Status status;
    qk_mem_debug_config("DEBUG=not,global LOG=NONE", &status);
    set_options("DB");
  });
  EXPECT_EQ(ended.out + ended.err, "");
  EXPECT_FALSE(std::filesystem::exists("qkmem.tdf"));
}

TEST(Options, KeepTheFirstTraceFileUnderASecondDb) {
  const Scene scene({"TRACE", "DB=first.tdf", ""});
  qk_mem_init();
  FILE* const stream = Qk_mem_db;
  std::fflush(stream);
  const std::string before = contents("first.tdf");
  EXPECT_EQ(set_options("DB=first.tdf"), kSuccess);
  EXPECT_EQ(set_options("DB=second.tdf"), kSuccess);
  EXPECT_EQ(Qk_mem_db, stream);
  std::fflush(stream);
  EXPECT_EQ(contents("first.tdf"), before);
  EXPECT_FALSE(std::filesystem::exists("second.tdf"));
}

TEST(Options, WarnOnStdoutIfTheTraceFileCannotBeOpened) {
  const Scene scene;
  const Ended ended = kit::run({"TRACE", "", ""}, [] {
    EXPECT_EQ(set_options("HEAPSIZE DB=missing/a.tdf"), kSuccess);
    std::printf("heapsize %u, trace file %s\n", Qk_mem_opts,
                Qk_mem_db == nullptr ? "none" : "open");
    std::filesystem::create_directory("qkmem.tdf");
    set_options("DB");
    set_options("DB=a.tdf");
  });
  EXPECT_EQ(
      ended.out,
      "   qk_mem_options: WARNING: unable to open missing/a.tdf (2 No such file or directory)\n"
      "heapsize 1, trace file none\n"
      "   qk_mem_options: WARNING: unable to open qkmem.tdf (21 Is a directory)\n");
  EXPECT_EQ(ended.err, "");
  EXPECT_EQ(first_line("a.tdf"), kHeadings);
}

TEST(Options, IgnoreFlushIfTheTraceFileCannotBeOpened) {
  const Scene scene;
  const Ended ended = kit::run({"EXCEPTIONS", "", ""}, [] {
    set_options("DB=missing/a.tdf FLUSH");
    std::printf("written: [%s]\n", contents("qkmem.log").c_str());
  });
  EXPECT_EQ(
      ended.out,
      "   qk_mem_options: WARNING: unable to open missing/a.tdf (2 No such file or directory)\n"
      "written: []\n");
}

TEST(Options, WriteLogAndTraceFileAtOnceUnderFlush) {
  const Scene scene({"EXCEPTIONS", "DB", ""});
  qk_mem_init();
  qk_mem_write_log("before\n");
  EXPECT_EQ(contents("qkmem.log"), "");
  EXPECT_EQ(contents("qkmem.tdf"), "");
  EXPECT_EQ(set_options("FLUSH"), kSuccess);
  qk_mem_write_log("after\n");
  EXPECT_EQ(contents("qkmem.log"),
            "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\nbefore\nafter\n");
  const std::size_t size = contents("qkmem.tdf").size();
  EXPECT_EQ(first_line("qkmem.tdf"), kHeadings);
  qk_mem_write_db(0, 'I', nullptr, 0, 0, "a.c", 1, 0);
  EXPECT_GT(contents("qkmem.tdf").size(), size);
}

TEST(Options, IgnoreAValueOfFlush) {
  const Scene scene("EXCEPTIONS");
  EXPECT_EQ(set_options("FLUSH=no"), kSuccess);
  qk_mem_write_log("line\n");
  EXPECT_EQ(contents("qkmem.log"), "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\nline\n");
}

TEST(Options, AcceptFlushWithoutLogAndTraceFile) {
  const Scene scene;
  EXPECT_EQ(set_options("FLUSH"), kSuccess);
}

}  // namespace
