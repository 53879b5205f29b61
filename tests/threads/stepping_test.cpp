// TERM at every single instruction of calls of the library and of the allocator.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/assertion.h"
#include "tests/kit/scene.h"

namespace {

// Sanitizers make hundreds of times as many steps, and hold locks that the library can't see.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
constexpr bool kCanStep = !qk::kAssertions;  // once is enough
#else
constexpr bool kCanStep = false;
#endif

constexpr char kLog[] = "stepped.log";
constexpr char kLine[] = "   qk_mem_cleanup:      Memory at program termination (Terminated)\n";
constexpr char kRule[] =
    "   ----------------------------------------------------------------------------\n";

/** The program, stopped at its first breakpoint. */
class Stepped {
 public:
  explicit Stepped(const char* what) : process_(fork()) {
    if (process_ == 0) {
      setenv("QK_MEM_DEBUG", (std::string("EXCEPTIONS SUMMARY LOG=") + kLog).c_str(), 1);
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      execl(QKMEM_STEPPED, QKMEM_STEPPED, what, nullptr);
      _exit(127);
    }
    waitpid(process_, &status_, 0);  // at its start
    go_on(PTRACE_CONT);
  }

  /** Executes a number of instructions. Returns false if the second breakpoint is among them. */
  bool make(int steps) {
    for (int i = 0; i < steps; ++i) {
      go_on(PTRACE_SINGLESTEP);
      siginfo_t info = {};
      ptrace(PTRACE_GETSIGINFO, process_, nullptr, &info);
      if (!WIFSTOPPED(status_) || info.si_code != TRAP_TRACE) return false;
    }
    return true;
  }

  /** Lets the program run on from here, with a signal. Returns how it ended. */
  int end_by(int signal_number) {
    ptrace(PTRACE_DETACH, process_, nullptr, static_cast<long>(signal_number));
    waitpid(process_, &status_, 0);
    return status_;
  }

 private:
  template <class Request>
  void go_on(Request request) {
    ptrace(request, process_, nullptr, nullptr);
    waitpid(process_, &status_, 0);
  }

  pid_t process_;
  int status_ = 0;
};

bool is_whole_report(const std::string& log) {
  const std::size_t line = log.find(kLine);
  return line != std::string::npos && log.find("Data handle pointers", line) != std::string::npos &&
         log.compare(log.size() - std::strlen(kRule), std::string::npos, kRule) == 0;
}

/** Each test takes one part of the instructions, so that none takes long. */
constexpr int kParts = 8;

/** Each third instruction shows what goes wrong over more than two; all of them take minutes. */
int stride() { return std::getenv("QKMEM_EVERY_INSTRUCTION") != nullptr ? 1 : 3; }

class TermAtAnyInstruction : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    if (!kCanStep) GTEST_SKIP() << "done once, where a step is an instruction";
  }

  /** Ends the program after each number of instructions that belongs to this part. */
  static void expect_reports_of(const char* what, int least) {
    for (int steps = GetParam() * stride(); !HasFailure(); steps += kParts * stride()) {
      Stepped program(what);
      if (!program.make(steps)) {
        program.end_by(SIGKILL);
        EXPECT_GT(steps, least);
        return;
      }
      const int status = program.end_by(SIGTERM);
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << steps;
      EXPECT_TRUE(is_whole_report(kit::contents(kLog))) << steps;
    }
  }

 private:
  kit::Scene scene_;
};

TEST_P(TermAtAnyInstruction, OfTheLibraryLeavesTheWholeReport) {
  expect_reports_of("library", 500);
}

TEST_P(TermAtAnyInstruction, OfTheAllocatorLeavesTheWholeReport) {
  expect_reports_of("allocator", 500);
}

INSTANTIATE_TEST_SUITE_P(Parts, TermAtAnyInstruction, ::testing::Range(0, kParts));

}  // namespace
