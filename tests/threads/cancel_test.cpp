// Threads that are cancelled while the library writes.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "core/registry.h"
#include "diag/log.h"
#include "qkmem/qkmem.h"
#include "tests/kit/array_check.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Pool;
using kit::Scene;

struct Call {
  std::function<void()> body;
  bool came_back = false;
};

void* call_with_pending_cancellation(void* argument) {
  auto* const call = static_cast<Call*>(argument);
  pthread_cancel(pthread_self());
  call->body();
  call->came_back = true;
  pthread_testcancel();
  return nullptr;
}

/**
 * Calls `body` in a thread of its own, of which a cancellation is pending. Each function that is a
 * cancellation point would end the thread there.
 *
 * @return whether `body` came to its end, and the thread was cancelled after that.
 */
bool is_cancelled_only_after(const std::function<void()>& body) {
  Call call{body};
  pthread_t thread = {};
  pthread_create(&thread, nullptr, call_with_pending_cancellation, &call);
  void* result = nullptr;
  pthread_join(thread, &result);
  return call.came_back && result == PTHREAD_CANCELED;
}

/** Whether nobody holds a lock of the library. */
bool locks_are_free(const Pool& pool) {
  bool free = Qk_mem_mtx.try_lock();
  if (free) Qk_mem_mtx.unlock();
  if (qk::Mtx* mtx = pool.record().mtx; mtx != nullptr) {
    free = free && mtx->try_lock();
    if (free) mtx->unlock();
  }
  return free;
}

TEST(Cancellation, WaitsUntilALoggedAllocationIsWhole) {
  Scene scene(Environment{"DEBUG", "FLUSH", ""});
  const Pool pool("MULTITHREADED");
  scene.skip_log();
  EXPECT_TRUE(is_cancelled_only_after([&] { qk_mem_imalloc(pool, 10, 16, "app.c", 1); }));
  EXPECT_TRUE(locks_are_free(pool));
  EXPECT_EQ(kit::check_all_arrays(), "");
  EXPECT_EQ(scene.log("qk_mem_imalloc"), "   qk_mem_imalloc:        3 [p1] M 10 app.c:1\n");
  EXPECT_EQ(kit::data_of(pool), "1 for 10");
}

TEST(Cancellation, WaitsUntilAnArrayHasGrown) {
  Scene scene(Environment{"DEBUG", "FLUSH", ""});
  const Pool pool("MULTITHREADED");
  EXPECT_TRUE(is_cancelled_only_after([&] {
    for (int i = 0; i < 1000; ++i) qk_mem_imalloc(pool, 10, 16, "app.c", 1);
  }));
  EXPECT_TRUE(locks_are_free(pool));
  EXPECT_EQ(kit::check_all_arrays(), "");
  EXPECT_EQ(kit::data_of(pool), "1000 for 10000");
}

TEST(Cancellation, WaitsUntilAReportIsWhole) {
  const Scene scene(Environment{"SUMMARY", "", ""});
  const Pool pool("MULTITHREADED");
  qk_mem_imalloc(pool, 10, 16, "app.c", 1);
  FILE* file = std::fopen("report.txt", "w");
  std::setbuf(file, nullptr);
  EXPECT_TRUE(is_cancelled_only_after([&] { qk_mem_dump(file, "", QK_MEM_DUMP_POINTERS); }));
  std::fclose(file);
  EXPECT_TRUE(locks_are_free(pool));
  EXPECT_EQ(kit::contents("report.txt"), kit::dump("", QK_MEM_DUMP_POINTERS));
}

TEST(Cancellation, WaitsUntilATraceRowIsWhole) {
  Scene scene(Environment{"TRACE", "DB FLUSH", ""});
  const Pool pool("MULTITHREADED");
  scene.skip_trace();
  EXPECT_TRUE(is_cancelled_only_after([&] { qk_mem_imalloc(pool, 10, 16, "app.c", 1); }));
  EXPECT_TRUE(locks_are_free(pool));
  EXPECT_EQ(scene.trace("M"), "3 M [p1] 1 10 app.c 1 10\n");
}

TEST(Cancellation, WaitsUntilTheLogIsReplaced) {
  const Scene scene(Environment{"DEBUG LOG=first.log", "", ""});
  const Pool pool("MULTITHREADED");
  EXPECT_TRUE(is_cancelled_only_after([&] {
    qk::Status status;
    EXPECT_EQ(qk_mem_debug_config("DEBUG LOG=second.log FLUSH", &status), 0);
    qk_mem_imalloc(pool, 10, 16, "app.c", 1);
  }));
  EXPECT_TRUE(locks_are_free(pool));
  EXPECT_NE(kit::contents("first.log").find("qk_mem_inew_handle"), std::string::npos);
  EXPECT_NE(kit::contents("second.log").find("qk_mem_imalloc"), std::string::npos);
}

TEST(Cancellation, WaitsWhileTheLogHasNoReader) {
  const Scene scene(Environment{});
  const Pool pool("MULTITHREADED");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_TRUE(is_cancelled_only_after([] {
    qk::Status status;
    EXPECT_EQ(qk_mem_debug_config("DEBUG LOG=fifo", &status), 0);
  }));
  EXPECT_EQ(Qk_mem_log, nullptr);
}

TEST(Cancellation, WaitsUntilFilesAreFlushed) {
  const Scene scene(Environment{"TRACE", "DB", ""});
  const Pool pool("MULTITHREADED");
  qk_mem_imalloc(pool, 10, 16, "app.c", 1);
  EXPECT_TRUE(is_cancelled_only_after([] {
    qk::Status status;
    EXPECT_EQ(qk_mem_options("FLUSH", &status), 0);
  }));
  EXPECT_TRUE(locks_are_free(pool));
  EXPECT_NE(kit::contents("qkmem.tdf").find("app.c"), std::string::npos);
}

TEST(Cancellation, WaitsUntilAForkIsOver) {
  const Scene scene(Environment{"DEBUG", "DB", ""});
  const Pool pool("MULTITHREADED");
  qk_mem_imalloc(pool, 10, 16, "app.c", 1);
  EXPECT_TRUE(is_cancelled_only_after([] {
    const pid_t child = fork();
    if (child == 0) _exit(0);
  }));
  wait(nullptr);
  EXPECT_TRUE(locks_are_free(pool));
  EXPECT_FALSE(qk::mem::holds_log());
}

/** The log of a process that a thread of it ends by `end` while its cancellation is pending. */
kit::Ended ended_by(void (*end)()) {
  return kit::run({"SUMMARY", "", "OPTIONS=POINTERS"}, [end] {
    const Pool pool("MULTITHREADED AUTOFREE");
    qk_mem_imalloc(pool, 10, 16, "app.c", 1);
    is_cancelled_only_after(end);
    std::exit(9);  // the thread was cancelled
  });
}

bool has_whole_report(const std::string& log) {
  return log.find("Memory at program termination") != std::string::npos &&
         log.find("Data handle pointers") != std::string::npos;
}

TEST(Cancellation, WaitsUntilTheProcessHasExited) {
  const Scene scene(Environment{});
  const kit::Ended ended = ended_by([] { std::exit(7); });
  EXPECT_EQ(ended.exit_code, 7);
  EXPECT_TRUE(has_whole_report(ended.log)) << ended.log;
}

TEST(Cancellation, WaitsUntilASignalHasEndedTheProcess) {
  const Scene scene(Environment{});
  const kit::Ended ended = ended_by([] { pthread_kill(pthread_self(), SIGTERM); });
  EXPECT_EQ(ended.signal, SIGTERM);
  EXPECT_TRUE(has_whole_report(ended.log)) << ended.log;
}

}  // namespace
