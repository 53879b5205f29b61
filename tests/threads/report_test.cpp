// Reports to a stream that other threads lock.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::Pool;
using kit::Scene;

/** Ends a process that hangs. */
constexpr unsigned kMostSeconds = 50;

TEST(Report, WaitsForItsStreamWithoutStoppingOthers) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"SUMMARY", "", ""}, [] {
    alarm(kMostSeconds);
    qk_mem_init();
    FILE* stream = std::fopen("report.txt", "w");
    std::atomic<bool> begins = false;
    flockfile(stream);
    std::thread reporter([&] {
      begins = true;
      qk_mem_dump(stream, "", QK_MEM_DUMP_SUMMARY);
    });
    while (!begins) std::this_thread::yield();
    usleep(50000);  // so that it waits for the stream, in almost every run
    const Pool pool("MULTITHREADED");
    qk_mem_idel_handle(pool, "app.c", 1);
    funlockfile(stream);
    reporter.join();
    std::fclose(stream);
  });
  EXPECT_EQ(ended.signal, 0);
  EXPECT_EQ(ended.exit_code, 0) << ended.err;
  EXPECT_NE(kit::contents("report.txt").find("Category"), std::string::npos);
}

TEST(Report, IsNotMixedWithOtherLinesOfItsStream) {
  const Scene scene("SUMMARY");
  constexpr int kReports = 300;
  for (int i = 0; i < 20; ++i) static_cast<void>(Pool());
  FILE* stream = std::fopen("report.txt", "w");
  std::atomic<bool> has_begun = false;
  std::atomic<bool> is_over = false;
  std::thread writer([&] {
    for (; !is_over; has_begun = true) std::fputs("other line\n", stream);
  });
  while (!has_begun) std::this_thread::yield();
  const unsigned sections = QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_MGMT;
  for (int i = 0; i < kReports; ++i) qk_mem_dump(stream, "", sections);
  is_over = true;
  writer.join();
  std::fclose(stream);
  const std::string text = kit::contents("report.txt");
  const std::string report = kit::dump("", sections);
  int reports = 0;
  for (std::size_t at = 0; (at = text.find(report, at)) != std::string::npos; ++reports) ++at;
  EXPECT_EQ(reports, kReports);
}

TEST(Report, ToTheLogsStreamGoesWellBesideEveryOtherCall) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"DEBUG CTRLBLKS LOG=STDERR", "DB", "OPTIONS=SUMMARY"}, [] {
    alarm(kMostSeconds);
    qk_mem_init();
    std::atomic<bool> has_begun = false;
    std::atomic<bool> is_over = false;
    std::thread reporter([&] {
      for (; !is_over; has_begun = true) qk_mem_dump(stderr, "", QK_MEM_DUMP_HANDLES);
    });
    while (!has_begun) std::this_thread::yield();
    std::thread creator([] {
      for (int i = 0; i < 100; ++i) {
        const Pool pool("MULTITHREADED");
        qk_mem_ifree(pool, qk_mem_imalloc(pool, 10, 16, "app.c", 1), "app.c", 2);
        qk_mem_idel_handle(pool, "app.c", 3);
      }
    });
    creator.join();
    is_over = true;
    reporter.join();
  });
  EXPECT_EQ(ended.signal, 0);
  EXPECT_EQ(ended.exit_code, 0);
  EXPECT_NE(ended.err.find("   qk_mem_ifree:        "), std::string::npos)
      << ended.err.substr(0, 999);
}

}  // namespace
