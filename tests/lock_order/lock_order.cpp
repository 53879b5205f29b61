// The order in which the library takes its locks, recorded while threads do everything at once.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "diag/log.h"
#include "tests/lock_order/recorder.h"
#include "tests/threads/mix.h"

namespace {

using lock_order::Edge;

/** Whether a stream is one that reports are printed to, but not the log. */
bool is_callers(FILE* stream) { return stream != Qk_mem_log; }

}  // namespace

// The locks of streams are the C library's; the linker leads the library's calls here.
extern "C" {
void __real_flockfile(FILE* stream);
int __real_ftrylockfile(FILE* stream);
void __real_funlockfile(FILE* stream);

void __wrap_flockfile(FILE* stream) {
  if (is_callers(stream)) lock_order::requested(stream);
  __real_flockfile(stream);
  if (is_callers(stream)) lock_order::acquired(stream);
}
int __wrap_ftrylockfile(FILE* stream) {
  const int result = __real_ftrylockfile(stream);
  if (result == 0 && is_callers(stream)) lock_order::acquired(stream);
  return result;
}
void __wrap_funlockfile(FILE* stream) {
  if (is_callers(stream)) lock_order::released(stream);
  __real_funlockfile(stream);
}
}

namespace {

/** Names a lock. A lock that it doesn't know is a handle's or a stream's. The constructor takes the log's and the error codes' to learn their addresses. */
class Classes {
 public:
  Classes() {
    qk::mem::hold_log();
    log_ = lock_order::held().back();
    qk::mem::let_log_go();
    Qk_mem_error.lock();
    error_ = lock_order::held().back();
    Qk_mem_error.unlock();
  }
  std::string operator()(const void* lock) const {
    if (lock == &Qk_mem_mtx) return "registry";
    if (lock == log_) return "log";
    return lock == error_ ? "error" : "handle";
  }

 private:
  const void* log_;
  const void* error_;
};

void run_mix() {
  const mix::SharedHandles shared;
  mix::Exchange exchange;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      mix::Worker worker(shared, exchange, i + 1, true);
      for (int step = 0; step < 10000; ++step) worker.step();
      worker.release_all();
    });
  }
  if (const pid_t child = fork(); child == 0) {
    _exit(0);
  } else {
    waitpid(child, nullptr, 0);
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(LockOrder, IsRegistryThenHandleThenLogThenError) {
  const kit::Scene scene({"EXCEPTIONS SUMMARY", "DB HEAPSIZE", ""});
  run_mix();
  const std::vector<Edge> edges = lock_order::edges(Classes());
  EXPECT_EQ(lock_order::cycle_in(edges), "");
  std::map<std::string, int> rank = {{"registry", 1}, {"handle", 2}, {"log", 3}, {"error", 4}};
  bool handle_under_registry = false;
  for (const Edge& edge : edges) {
    EXPECT_LT(rank[edge.outer], rank[edge.inner])
        << edge.outer << " held, " << edge.inner << " requested\n"
        << edge.first_stack;
    if (edge.outer == "registry" && edge.inner == "handle") handle_under_registry = true;
  }
  EXPECT_TRUE(handle_under_registry);
}

TEST(LockOrder, RevealsAnInversionWithBothStacks) {
  qk::Mtx first;
  qk::Mtx second;
  const auto name = [&](const void* lock) {
    return lock == &first ? std::string("first") : std::string("second");
  };
  const auto take = [](qk::Mtx& outer, qk::Mtx& inner) {
    const std::lock_guard one(outer);
    const std::lock_guard two(inner);
  };
  take(first, second);
  EXPECT_EQ(lock_order::cycle_in(lock_order::edges(name)), "");
  take(second, first);
  const std::string cycle = lock_order::cycle_in(lock_order::edges(name));
  EXPECT_NE(cycle.find("first held, second requested\n    "), std::string::npos) << cycle;
  EXPECT_NE(cycle.find("second held, first requested\n    "), std::string::npos) << cycle;
}

TEST(LockOrder, LetsReportsWaitForNothingWhileTheyHoldAnything) {
  const kit::Scene scene("SUMMARY");
  qk_mem_init();
  FILE* stream = std::fopen("report.txt", "w");
  lock_order::forget();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([stream] {
      for (int report = 0; report < 500; ++report) qk_mem_dump(stream, "", QK_MEM_DUMP_HANDLES);
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::fclose(stream);
  const auto by_address = [](const void* lock) {
    return std::to_string(reinterpret_cast<std::uintptr_t>(lock));
  };
  for (const Edge& edge : lock_order::edges(by_address)) ADD_FAILURE() << edge.first_stack;
}

TEST(LockOrder, HasNoEdgesInMemoryCallsThatLog) {
  const kit::Scene scene("DEBUG LOG=/dev/null");
  const kit::Pool pool("MULTITHREADED");
  std::vector<void*> memory(200);
  for (void*& one : memory) one = qk_mem_malloc(pool, 40);  // so that no array grows later
  for (void* one : memory) qk_mem_free(pool, one);
  lock_order::forget();
  for (int i = 0; i < 20; ++i) {
    void* one = qk_mem_malloc(pool, 40);
    one = qk_mem_realloc(pool, one, 60);
    qk_mem_free(pool, one);
    qk_mem_free(pool, qk_mem_strdup(pool, "text"));
  }
  const auto by_address = [](const void* lock) {
    return std::to_string(reinterpret_cast<std::uintptr_t>(lock));
  };
  for (const Edge& edge : lock_order::edges(by_address)) ADD_FAILURE() << edge.first_stack;
}

}  // namespace
