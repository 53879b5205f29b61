#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

#include "core/records.h"
#include "qkmem/qkmem.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

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
  const std::string log =
      kit::replaced(kit::normalized(after_announcement(ended.log)), R"(\d+ app\.c)", "# app.c");
  EXPECT_EQ(kit::sections_of(log, QK_MEM_DUMP_POINTERS),
            "   qk_mem_cleanup:      Memory at program termination (Terminated)\n"
            "Data handle pointers\n"
            "   +   3    p1               M     1       10       10      # app.c:1\n");
}

TEST(TerminatingSignal, LeavesOneLineIfTheReportCannotBeMade) {
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

}  // namespace
