#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "qkmem/core/records.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::Pool;
using kit::Scene;

constexpr char kTermLine[] = "   qk_mem_cleanup:      Memory at program termination (Terminated)\n";

std::string after_announcement(const std::string& log) { return log.substr(log.find("   qk_mem")); }

TEST(TerminatingSignal, LeavesTheWholeReport) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"SUMMARY", "", "OPTIONS=POINTERS"}, [] {
    const Pool pool;
    qk_mem_imalloc(pool, 10, 16, "app.c", 1);
    raise(SIGTERM);
  });
  EXPECT_EQ(ended.signal, SIGTERM);
  // How many events came before depends on the addresses.
  const std::regex event(R"(\d+ app\.c)");
  EXPECT_EQ(std::regex_replace(kit::plain(after_announcement(ended.log)), event, "# app.c"),
            "   qk_mem_cleanup:      Memory at program termination (Terminated)\n"
            "\n"
            "    Hndl Tg          Address Typ Qty     Size    Total     Seq Location\n"
            "   ----------------------------------------------------------------------------\n"
            "   - - - - - - - - - - - - - Overhead handle pointers  - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Data handle pointers  - - - - - - - - - - - - - - \n"
            "   +   3    p1               M     1       10       10      # app.c:1\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(TerminatingSignal, LeavesOneLineAndNoHalfReportWhereTheReportCannotBeMade) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"DEBUG SUMMARY", "", ""}, [] {
    const Pool held("MULTITHREADED AUTOFREE");
    const Pool pool("AUTOFREE");
    qk_mem_imalloc(pool, 10, 16, "app.c", 1);
    std::atomic<bool> locked = false;
    std::thread holder([&] {
      held.record().mtx->lock();
      locked = true;
      pause();
    });
    while (!locked) std::this_thread::yield();
    raise(SIGTERM);
  });
  EXPECT_EQ(ended.signal, SIGTERM);
  const std::string end = ended.log.substr(ended.log.find("   qk_mem_cleanup:"));
  EXPECT_EQ(end, kTermLine);
}

/** Keeps four threads allocating, in the library and outside of it, until the end of the process.
 */
void stay_busy() {
  const Pool pool("MULTITHREADED");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (;;) {
        void* block = qk_mem_imalloc(pool, 100, 16, "busy.c", 1);
        const int own = qk_mem_inew_handle("", "", "busy.c", 2);
        const std::string text(200, 'x');
        qk_mem_idel_handle(own, "busy.c", 3);
        qk_mem_ifree(pool, block, "busy.c", 4);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

void kill_busy_programs(int signal_number, int times) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer can't be interrupted everywhere";
#endif
  const Scene scene(kit::Environment{});
  for (int i = 0; i < times; ++i) {
    const Ended ended = kit::run({"EXCEPTIONS SUMMARY", "", ""}, [&] {
      std::thread killer([&] {
        usleep(static_cast<useconds_t>(500 + 37 * i % 3000));
        kill(getpid(), signal_number);
      });
      alarm(5);
      stay_busy();
    });
    ASSERT_EQ(ended.signal, signal_number) << "round " << i << ", exit code " << ended.exit_code;
  }
}

// A round in which the report can't be made takes the second and a half after which it is given up.
constexpr int kReportRounds = 15;
constexpr int kCrashRounds = 100;

TEST(BusyProgram, EndsByTermWheneverItComes) { kill_busy_programs(SIGTERM, kReportRounds); }
TEST(BusyProgram, EndsByInterruptWheneverItComes) { kill_busy_programs(SIGINT, kReportRounds); }
TEST(BusyProgram, EndsBySegvWheneverItComes) { kill_busy_programs(SIGSEGV, kCrashRounds); }
TEST(BusyProgram, EndsByAbortWheneverItComes) { kill_busy_programs(SIGABRT, kCrashRounds); }

}  // namespace
