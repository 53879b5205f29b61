// Signals at random moments of a busy program, which always ends by them, and soon.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/signal_names.h"
#include "tests/kit/scene.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A signal can stop a thread that holds a sanitizer's own lock, which the library can't see.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kCanBeInterrupted = false;
#else
constexpr bool kCanBeInterrupted = true;
#endif

constexpr int kAtATime = 4;
constexpr char kRule[] =
    "   ----------------------------------------------------------------------------\n";

/** The number of kills by each signal. */
int kills() {
  const char* number = std::getenv("QKMEM_KILLS");
  return number != nullptr ? std::atoi(number) : 100;
}

/** How one program has ended. */
struct End {
  int status = -1;
  Clock::duration taken{};
  std::string log;  // without the lines from before the signal
};

/** What the clean-up wrote, without the lines of threads that kept running. */
std::string lines_of_cleanup(const std::string& log) {
  const std::size_t begin = log.find("   qk_mem_cleanup:");
  std::istringstream lines(begin == std::string::npos ? "" : log.substr(begin));
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    const bool cut_off = lines.eof();
    const bool others =
        line.rfind("   qk_mem_", 0) == 0 && line.rfind("   qk_mem_cleanup:", 0) != 0;
    if (!cut_off && !others) result += line + "\n";
  }
  return result;
}

/** The program, started with a log of its own. */
class Victim {
 public:
  explicit Victim(const std::string& log) : log_(log) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string debug = "QK_MEM_DEBUG=EXCEPTIONS SUMMARY LOG=" + log;
    std::string path = QKMEM_VICTIM;
    char* arguments[] = {path.data(), nullptr};
    char* environment[] = {debug.data(), nullptr};
    if (posix_spawn(&process_, QKMEM_VICTIM, &actions, nullptr, arguments, environment) != 0) {
      std::abort();
    }
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    char begun = 0;
    if (read(ends[0], &begun, 1) != 1) std::fprintf(stderr, "the victim didn't start\n");
    close(ends[0]);
  }

  End end_by(int signal_number) {
    const auto begin = Clock::now();
    kill(process_, signal_number);
    End end;
    while (waitpid(process_, &end.status, WNOHANG) == 0) {
      std::this_thread::sleep_for(500us);
      if (Clock::now() - begin > 10s) kill(process_, SIGKILL);
    }
    end.taken = Clock::now() - begin;
    end.log = lines_of_cleanup(kit::contents(log_));
    std::remove(log_.c_str());
    return end;
  }

 private:
  std::string log_;
  pid_t process_ = 0;
};

/** Kills programs at random moments, a few at a time. */
std::vector<End> kill_many(int signal_number) {
  std::mutex mutex;
  std::vector<End> ends;
  std::vector<std::thread> killers;
  for (int killer = 0; killer < kAtATime; ++killer) {
    killers.emplace_back([&, killer, count = kills()] {
      std::minstd_rand random(static_cast<unsigned>(signal_number * 100 + killer));
      const std::string log = "victim" + std::to_string(killer) + ".log";
      for (int i = killer; i < count; i += kAtATime) {
        Victim victim(log);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        const End end = victim.end_by(signal_number);
        const std::lock_guard lock(mutex);
        ends.push_back(end);
      }
    });
  }
  for (std::thread& killer : killers) killer.join();
  return ends;
}

/** Whether a log is the line alone, or the line and the whole report. */
bool is_line_or_whole_report(const std::string& log, const std::string& line) {
  if (log.rfind(line, 0) != 0) return false;
  if (log.size() == line.size()) return true;
  return log.find("Data handle pointers") != std::string::npos &&
         log.compare(log.size() - std::strlen(kRule), std::string::npos, kRule) == 0;
}

class BusyProgram : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kCanBeInterrupted) GTEST_SKIP() << "sanitizers can't be interrupted everywhere";
  }

  /** Kills programs and checks how they end. Returns how many wrote the whole report. */
  static int expect_ends(int signal_number) {
    const std::string line = "   qk_mem_cleanup:      Memory at program termination (" +
                             std::string(sigdescr_np(signal_number)) + ")\n";
    int reports = 0;
    Clock::duration longest{};
    for (const End& end : kill_many(signal_number)) {
      EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == signal_number) << end.status;
      const bool may_be_silent = qk_signal_safe(signal_number) == 0;
      EXPECT_TRUE((end.log.empty() && may_be_silent) || is_line_or_whole_report(end.log, line))
          << end.log;
      longest = std::max(longest, end.taken);
      if (end.log.size() > line.size()) ++reports;
    }
    EXPECT_LT(longest, 2s);
    std::printf("%d kills, %d whole reports, %lld ms at most\n", kills(), reports,
                static_cast<long long>(longest / 1ms));
    return reports;
  }

 private:
  kit::Scene scene_;
};

TEST_F(BusyProgram, EndsByTermWithTheWholeReport) {
  EXPECT_GE(expect_ends(SIGTERM), kills() * 95 / 100);
}
TEST_F(BusyProgram, EndsByInterruptWithTheWholeReport) {
  EXPECT_GE(expect_ends(SIGINT), kills() * 95 / 100);
}
TEST_F(BusyProgram, EndsBySegvWithOneLineAtMost) { EXPECT_EQ(expect_ends(SIGSEGV), 0); }
TEST_F(BusyProgram, EndsByAbortWithOneLineAtMost) { EXPECT_EQ(expect_ends(SIGABRT), 0); }

}  // namespace
