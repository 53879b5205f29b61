#include "life/cleanup.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>

#include "core/registry.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::Pool;
using kit::Scene;

constexpr char kRule[] =
    "   ----------------------------------------------------------------------------\n";

/** The report in its shortest form, with a heap of 135168 bytes. */
constexpr char kShort[] = "OPTIONS=HEAPSIZE";
const std::string kShortReport = "Current heapsize:      135168\n" + std::string(kRule);

/** Runs `body` with a heap of 135168 bytes. */
Ended run(const char* debug, const std::function<void()>& body, const char* options = "") {
  return kit::run({debug, options, kShort}, [&body] {
    kit::set_heap(135168);
    qk_mem_init();
    body();
  });
}

/** The announcements of the two variables that run() sets. */
std::string announced(const std::string& debug) {
  return "QK_MEM_DEBUG:  initializing options [" + debug +
         "]\nQK_MEM_DUMP:  initializing options [OPTIONS=HEAPSIZE]\n";
}

/** A log from the clean-up's first line on, without the lines of deletions. */
std::string log_of_cleanup(const std::string& log) {
  std::string result;
  std::istringstream lines(log.substr(log.find("   qk_mem_cleanup:")));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("   qk_mem_idel_handle:", 0) != 0) result += line + "\n";
  }
  return kit::normalized(result);
}

void leave_handles_of_all_sorts() {
  (void)qk_mem_imalloc(Pool("AUTOFREE"), 100, 16, "app.c", 1);   // 3
  (void)qk_mem_imalloc(Pool(""), 200, 16, "app.c", 2);           // 4
  const Pool autofree("OVERHEAD,AUTOFREE,MULTITHREADED", "ab");  // 5
  (void)qk_mem_imalloc(autofree, 20, 16, "app.c", 3);
  (void)qk_mem_imalloc(autofree, 30, 16, "app.c", 4);
}

TEST(CleanUp, PrintsNothingWithoutSummary) {
  const Scene scene;
  const Ended ended = kit::run({}, leave_handles_of_all_sorts);
  EXPECT_EQ(ended.out + ended.err, "");
  EXPECT_FALSE(std::filesystem::exists("qkmem.log"));
  EXPECT_EQ(run("EXCEPTIONS", leave_handles_of_all_sorts).log, announced("EXCEPTIONS"));
}

TEST(CleanUp, PrintsTheReportUnderSummary) {
  const Scene scene;
  EXPECT_EQ(run("SUMMARY", leave_handles_of_all_sorts).log,
            announced("SUMMARY") +
                "   qk_mem_cleanup:      Memory at program termination (normal termination)\n" +
                kShortReport);
}

TEST(CleanUp, KeepsTheExitCode) {
  const Scene scene;
  const Ended ended = run("SUMMARY", [] { std::exit(3); });
  EXPECT_EQ(ended.exit_code, 3);
  EXPECT_EQ(ended.log.substr(ended.log.size() - kShortReport.size()), kShortReport);
}

TEST(CleanUp, DeletesAutofreeHandlesLastOneFirst) {
  const Scene scene;
  EXPECT_EQ(log_of_cleanup(run("DEBUG", leave_handles_of_all_sorts).log),
            "   qk_mem_cleanup:      Deleting autofree handle 5 (2 ptrs for 50 bytes)\n"
            "   qk_mem_cleanup:      Deleting autofree handle 3 (1 ptrs for 100 bytes)\n"
            "   qk_mem_cleanup:      Deleting autofree handle 1 (0 ptrs for 0 bytes)\n"
            "   qk_mem_cleanup:        1 [p1] F qkmem.cpp:#; H 512/8 qkmem.cpp:#\n"
            "-------------------------------------------------\n"
            "Mallinfo stats\n"
            "  Arena:           135168\n"
            "  Ordblks:              0\n"
            "  Smblks:               0\n"
            "  Hblkhd:               0\n"
            "  Hblks:                0\n"
            "  Usmblks:              0\n"
            "  Fsmblks:              0\n"
            "  Uordblks:             0\n"
            "  Fordblks:             0\n"
            "  Keepcost:             0\n"
            "-------------------------------------------------\n");
}

TEST(CleanUp, PrintsTheReportBeforeItReleasesTheHandleArray) {
  const Scene scene;
  const auto nothing = [] {};
  const std::string text = log_of_cleanup(run("DEBUG SUMMARY", nothing, "HEAPSIZE").log);
  const std::size_t statistics = text.find("\n-") + 1;
  EXPECT_EQ(
      text.substr(0, statistics),
      "   qk_mem_cleanup:      Memory at program termination (normal termination)\n"
      "   qk_mem_cleanup:      Deleting autofree handle 1 (0 ptrs for 0 bytes)\n" +
          kShortReport +
          "   qk_mem_cleanup:        1 [p1] F qkmem.cpp:#; H 512/8 qkmem.cpp:# (heap change)\n");
}

TEST(CleanUp, FreesThePointersOfAutofreeHandles) {
  const Scene scene;
  const Ended ended = run("DEBUG", leave_handles_of_all_sorts);
  const std::string log = kit::normalized(ended.log);
  for (const char* released : {"F qkmem.cpp:#; M 100 app.c:1\n", "F qkmem.cpp:#; M 20 app.c:3\n",
                               "F qkmem.cpp:#; M 30 app.c:4\n"}) {
    EXPECT_NE(log.find(released), std::string::npos) << released;
  }
  EXPECT_EQ(log.find("; M 200 app.c:2\n"), std::string::npos);
  EXPECT_NE(log.find("   qk_mem_idel_handle:    5 D qkmem.cpp:#; pool.c:7\n"), std::string::npos);
}

/** The last row of a trace file without what depends on the allocator. */
std::string last_row(const std::string& trace) {
  std::istringstream lines(trace);
  std::string last;
  for (std::string line; std::getline(lines, line);) last = line;
  std::istringstream columns(last);
  std::string sequence, handle, type, address, num, size, handle_size, file, line, current, heap,
      unknown, change;
  columns >> sequence >> handle >> type >> address >> num >> size >> handle_size >> file >> line >>
      current >> heap >> unknown >> change;
  return handle + type + " " + num + " " + size + " " + handle_size + " " + file + " " + change;
}

TEST(CleanUp, EndsTheTraceFileWithTheHandleArraysRelease) {
  const Scene scene;
  const Ended ended = run("TRACE", leave_handles_of_all_sorts, "DB");
  EXPECT_EQ(last_row(ended.trace), "1F 512 8 0 qkmem.cpp -4096");
}

TEST(CleanUp, WritesTheSameAtASignalAsAtNormalExit) {
  const Scene scene;
  const Ended at_end = run("DEBUG", leave_handles_of_all_sorts, "DB");
  const auto leave_by_signal = [] {
    leave_handles_of_all_sorts();
    std::raise(SIGTERM);
  };
  const Ended at_signal = run("DEBUG", leave_by_signal, "DB");
  EXPECT_EQ(at_signal.signal, SIGTERM);
  EXPECT_EQ(log_of_cleanup(at_signal.log), log_of_cleanup(at_end.log));
  EXPECT_EQ(last_row(at_signal.trace), "1F 512 8 0 qkmem.cpp -4096");
}

TEST(CleanUp, ReportsOnStandardStreamsAtASignalToo) {
  const Scene scene;
  for (const char* debug : {"SUMMARY LOG=STDERR", "SUMMARY LOG=STDOUT"}) {
    const Ended ended = run(debug, [] { std::raise(SIGINT); });
    EXPECT_EQ(ended.out + ended.err,
              announced(debug) +
                  "   qk_mem_cleanup:      Memory at program termination (Interrupt)\n" +
                  kShortReport);
    EXPECT_EQ(ended.signal, SIGINT);
  }
}

TEST(CleanUp, WritesOneLineAtAFault) {
  const Scene scene;
  const struct {
    int number;
    const char* description;
  } signals[] = {{SIGSEGV, "Segmentation fault"},
                 {SIGBUS, "Bus error"},
                 {SIGFPE, "Floating point exception"},
                 {SIGILL, "Illegal instruction"},
                 {SIGABRT, "Aborted"}};
  for (const auto& signal : signals) {
    const Ended ended = run("DEBUG=global SUMMARY LOG=STDERR", [&signal] {
      leave_handles_of_all_sorts();
      std::raise(signal.number);
    });
    const std::string line = "   qk_mem_cleanup:      Memory at program termination (" +
                             std::string(signal.description) + ")\n";
    EXPECT_EQ(ended.err.substr(ended.err.find("   qk_mem_cleanup:")), line);
    EXPECT_EQ(ended.signal, signal.number);
  }
}

TEST(CleanUp, WritesNothingAtAFaultWithoutSummary) {
  const Scene scene;
  const Ended ended = run("EXCEPTIONS LOG=STDERR", [] {
    leave_handles_of_all_sorts();
    std::raise(SIGSEGV);
  });
  EXPECT_EQ(ended.err, announced("EXCEPTIONS LOG=STDERR"));
  EXPECT_EQ(ended.signal, SIGSEGV);
}

TEST(CleanUp, DeletesAndClosesNothingAtAFault) {
  const Scene scene({"TRACE SUMMARY", "DB", ""});
  const Pool pool("AUTOFREE");
  qk_mem_cleanup(SIGSEGV);
  EXPECT_EQ(Qk_mem_num_handles, 3);
  EXPECT_NE(Qk_mem_handles, nullptr);
  EXPECT_NE(Qk_mem_log, nullptr);
  EXPECT_NE(Qk_mem_db, nullptr);
}

TEST(CleanUp, LeavesNoHandleArrayLogOrTraceFile) {
  const Scene scene({"TRACE SUMMARY", "DB", ""});
  const Pool pool("AUTOFREE");
  void* const array = Qk_mem_handles;
  qk_mem_cleanup(0);
  EXPECT_EQ(Qk_mem_handles, nullptr);
  EXPECT_EQ(Qk_mem_avail_handles, 0);
  EXPECT_EQ(Qk_mem_log, nullptr);
  EXPECT_EQ(Qk_mem_db, nullptr);
  EXPECT_EQ(Qk_mem_initialized, 1);
  EXPECT_EQ(Qk_mem_handles_ptr.address, array);
  EXPECT_EQ(Qk_mem_handles_ptr.count, 512U);
  EXPECT_EQ(Qk_mem_handles_ptr.size, 8U);
  EXPECT_EQ(Qk_mem_handles_ptr.kind, 'H');
}

TEST(CleanUp, TreatsNegativeSignalsAsNormalTermination) {
  const Scene scene;
  const Ended ended = run("SUMMARY LOG=STDERR", [] { qk_mem_cleanup(-1); });
  EXPECT_EQ(ended.err.substr(announced("SUMMARY LOG=STDERR").size()),
            "   qk_mem_cleanup:      Memory at program termination (normal termination)\n" +
                kShortReport);
}

TEST(CleanUp, LeavesStandardStreamsOpen) {
  const Scene scene;
  const struct {
    const char* debug;
    FILE* stream;
  } cases[] = {{"SUMMARY LOG=STDERR", stderr}, {"SUMMARY LOG=STDOUT", stdout}};
  for (const auto& c : cases) {
    const Ended ended = run(c.debug, [&c] {
      qk_mem_cleanup(0);
      std::fputs(Qk_mem_log == nullptr ? "still open, no log\n" : "still open\n", c.stream);
    });
    EXPECT_EQ(ended.out + ended.err,
              announced(c.debug) +
                  "   qk_mem_cleanup:      Memory at program termination (normal termination)\n" +
                  kShortReport + "still open, no log\n");
  }
}

TEST(CleanUp, RunsAfterExitHandlersThatWereRegisteredLater) {
  const Scene scene;
  const Ended ended = run("SUMMARY LOG=STDERR",
                          [] { std::atexit([] { std::fputs("own exit handler\n", stderr); }); });
  EXPECT_EQ(ended.err.substr(announced("SUMMARY LOG=STDERR").size(), 17), "own exit handler\n");
}

}  // namespace
