// The exit of a process whose other threads keep running.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "core/records.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::Pool;
using kit::Scene;

/** Uses the library forever, on the data handle and on a new handle in each round. */
void stay_busy(const std::string& options) {
  for (;;) {
    const int hid = qk_mem_inew_handle(options.c_str(), "BU", "busy.c", 1);
    void* block = qk_mem_imalloc(hid, 100, 16, "busy.c", 2);
    qk_mem_idel_handle(hid, "busy.c", 3);
    block = qk_mem_imalloc(QK_MEM_DATA_HANDLE, 100, 16, "busy.c", 4);
    qk_mem_ifree(QK_MEM_DATA_HANDLE, block, "busy.c", 5);
  }
}

/** Starts detached threads, which nobody waits for at the end. */
void start_busy_threads(const char* options) {
  qk_mem_init();
  for (int i = 0; i < 3; ++i) std::thread(stay_busy, std::string(options)).detach();
}

void let_them_run(int round) { usleep(static_cast<useconds_t>(300 + 97 * round % 2000)); }

// Under the thread sanitizer each process sleeps at its end.
#ifdef __SANITIZE_THREAD__
constexpr int kRounds = 20;
#else
constexpr int kRounds = 100;
#endif

TEST(Exit, KeepsItsCodeFromMainWhileOtherThreadsRun) {
  const Scene scene(kit::Environment{});
  for (int round = 0; round < kRounds; ++round) {
    const Ended ended = kit::run({"EXCEPTIONS SUMMARY", "", ""}, [&] {
      start_busy_threads("MULTITHREADED");
      let_them_run(round);
      std::exit(7);
    });
    ASSERT_EQ(ended.signal, 0) << "round " << round;
    ASSERT_EQ(ended.exit_code, 7) << ended.err;
    ASSERT_NE(ended.log.find("Memory at program termination (normal termination)"),
              std::string::npos);
  }
}

TEST(Exit, KeepsItsCodeFromAThreadWhileOthersRun) {
  const Scene scene(kit::Environment{});
  for (int round = 0; round < kRounds; ++round) {
    const Ended ended = kit::run({"TRACE", "DB", ""}, [&] {
      start_busy_threads("BLOCKMGMT");
      std::thread([&] {
        let_them_run(round);
        std::exit(5);
      }).detach();
      stay_busy("");
    });
    ASSERT_EQ(ended.signal, 0) << "round " << round;
    ASSERT_EQ(ended.exit_code, 5) << ended.err;
  }
}

TEST(Exit, DeletesOnlyTheAutofreeHandlesOfRunningThreads) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"SUMMARY", "", "OPTIONS=HANDLES"}, [] {
    static std::atomic<int> ready = 0;
    for (const char* options : {"AUTOFREE", ""}) {
      std::thread([options] {
        const Pool pool(options, "TH");
        qk_mem_imalloc(pool, 10, 16, "thread.c", 1);
        ++ready;
        for (;;) pause();
      }).detach();
    }
    while (ready < 2) std::this_thread::yield();
  });
  EXPECT_EQ(ended.exit_code, 0);
  const std::size_t row = ended.log.find(" TH ");
  EXPECT_NE(row, std::string::npos) << ended.log;
  EXPECT_EQ(ended.log.find(" TH ", row + 1), std::string::npos) << ended.log;
}

/** Destroyed at the end of its thread. */
struct FreesAtTheEnd {
  int hid = 0;
  void* memory = nullptr;
  ~FreesAtTheEnd() { qk_mem_ifree(hid, memory, "thread_local.c", 1); }
};

TEST(ThreadLocalDestructors, CanFreeOnSharedHandles) {
  const Scene scene("EXCEPTIONS");
  const Pool pool("MULTITHREADED");
  for (int round = 0; round < 50; ++round) {
    std::thread([&] {
      thread_local FreesAtTheEnd local;
      local.hid = pool;
      local.memory = qk_mem_imalloc(pool, 10, 16, "thread_local.c", 2);
    }).join();
  }
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log("qk_mem_ifree"), "");
}

TEST(ThreadLocalDestructors, RunBeforeTheCleanUpInMain) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"EXCEPTIONS SUMMARY", "", "OPTIONS=POINTERS"}, [] {
    thread_local FreesAtTheEnd local;
    local.hid = Pool();
    local.memory = qk_mem_imalloc(local.hid, 10, 16, "thread_local.c", 2);
  });
  EXPECT_EQ(ended.exit_code, 0);
  EXPECT_EQ(ended.log.find("thread_local.c"), std::string::npos) << ended.log;
}

TEST(ThreadLocalDestructors, CanReadAndSetTheThreadsError) {
  const Scene scene("EXCEPTIONS");
  std::atomic<int> error = 0;
  struct Fails {
    std::atomic<int>* error = nullptr;
    ~Fails() {
      qk_mem_imalloc(4711, 1, 16, "thread_local.c", 3);
      *error = qk_mem_error();
    }
  };
  std::thread([&] {
    thread_local Fails local;
    local.error = &error;
  }).join();
  EXPECT_EQ(error, 5566);
}

}  // namespace
