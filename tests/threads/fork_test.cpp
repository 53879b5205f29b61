#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"
#include "tests/threads/rounds.h"

namespace {

using kit::Pool;
using kit::Scene;

/** Threads that keep a handle busy as long as the object exists. */
class Load {
 public:
  explicit Load(int hid, int threads = 3) {
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this, hid] { work(hid); });
  }
  ~Load() {
    stop_ = true;
    for (std::thread& thread : threads_) thread.join();
  }

 private:
  void work(int hid) {
    while (!stop_) {
      void* block = qk_mem_imalloc(hid, 40, 16, "load.c", 1);
      qk_mem_imalloc(-1, 1, 16, "load.c", 2);
      qk_mem_ifree(hid, block, "load.c", 3);
      const int own = qk_mem_inew_handle("MULTITHREADED", "LO", "load.c", 4);
      qk_mem_imalloc(own, 40, 16, "load.c", 5);
      qk_mem_idel_handle(own, "load.c", 6);
    }
  }

  std::atomic<bool> stop_ = false;
  std::vector<std::thread> threads_;
};

/** Forks a child that runs `body` and exits. Returns its exit code, or 1000 + its signal. */
template <class Body>
int in_child(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    body();
    std::exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

TEST(ForkUnderLoad, LeavesTheChildAbleToAllocateReportAndExit) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer's own locks don't survive a fork among threads";
#endif
  const Scene scene(kit::Environment{"EXCEPTIONS SUMMARY LOG=NONE", "", ""});
  const Pool pool("MULTITHREADED", "FK");
  const Load load(pool);
  for (int i = 0; i < rounds(500); ++i) {
    ASSERT_EQ(in_child([&] {
                void* block = qk_mem_imalloc(pool, 10, 16, "child.c", 1);
                const int own = qk_mem_inew_handle("MULTITHREADED", "CH", "child.c", 2);
                qk_mem_imalloc(own, 10, 16, "child.c", 3);
                qk_mem_idel_handle(own, "child.c", 4);
                qk_mem_ifree(pool, block, "child.c", 5);
                FILE* nowhere = std::fopen("/dev/null", "w");
                qk_mem_dump(nowhere, "", 0);
                std::fclose(nowhere);
              }),
              0)
        << "child " << i;
  }
}

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++found;
  }
  return found;
}

TEST(Fork, DoesNotRepeatBufferedLinesAndRows) {
  const kit::Ended ended = [] {
    Scene scene(kit::Environment{});
    return kit::run({"DEBUG", "DB", ""}, [] {
      const Pool pool;
      qk_mem_imalloc(pool, 10, 16, "before.c", 1);
      for (int i = 0; i < 3; ++i) in_child([] {});
    });
  }();
  EXPECT_EQ(ended.exit_code, 0);
  EXPECT_EQ(count(ended.log, "qk_mem_imalloc:"), 1U);
  EXPECT_EQ(count(ended.trace, "\tM\t"), 1U);
  EXPECT_EQ(count(ended.trace, "Sequence\tHandle"), 1U);
}

/** A lock of the program, which its fork handlers hold while the process is copied. */
std::mutex program_lock;
std::atomic<bool> fork_has_begun = false;

void lock_program() {
  fork_has_begun = true;
  program_lock.lock();
}

void unlock_program() { program_lock.unlock(); }

TEST(Fork, TakesTheLocksOfHandlersThatTheProgramRegisteredFirst) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer's own locks don't survive a fork among threads";
#endif
  const Scene scene("");
  ASSERT_EQ(pthread_atfork(lock_program, unlock_program, unlock_program), 0);
  qk_mem_init();
  std::atomic<bool> holds_lock = false;
  std::thread user([&] {
    const std::lock_guard lock(program_lock);
    holds_lock = true;
    while (!fork_has_begun) std::this_thread::yield();
    qk_mem_idel_handle(qk_mem_inew_handle("", "", "user.c", 1), "user.c", 2);
  });
  while (!holds_lock) std::this_thread::yield();
  EXPECT_EQ(in_child([] { EXPECT_NE(qk_mem_inew_handle("", "", "child.c", 1), 0); }), 0);
  user.join();
}

}  // namespace
