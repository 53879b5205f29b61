// Locks that have become used to one thread, and then are wanted by others.
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "support/mtx.h"
#include "support/process_barrier.h"

namespace {

constexpr int kEnough = 100;  // lockings in a row by one thread

void lock_often(qk::Mtx& mtx, int times, const std::function<void()>& inside) {
  for (int i = 0; i < times; ++i) {
    const std::lock_guard<qk::Mtx> lock(mtx);
    inside();
  }
}

void become_favourite_of(qk::Mtx& mtx) {
  lock_often(mtx, kEnough, [] {});
}

/** Each thread becomes the favourite several times, and the others interrupt its runs. */
long count_in_runs(qk::Mtx& mtx, int threads) {
  constexpr int kRuns = 20;
  constexpr int kRun = 2000;
  long count = 0;
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([&] {
      for (int run = 0; run < kRuns; ++run) {
        lock_often(mtx, kRun, [&] { ++count; });
        std::this_thread::yield();
      }
    });
  }
  for (std::thread& each : all) each.join();
  return count;
}

/** From now on the kernel refuses barriers, as in a sandbox. */
void forbid_barriers() {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_membarrier, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {4, steps};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  // For the threads that the process has, too.
  ASSERT_EQ(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &filter), 0);
}

/** As in a process that was started in the sandbox. */
void forget_barriers() { qk::process_barrier = qk::ProcessBarrier::kUntried; }

void expect_exclusion(qk::Mtx& mtx) { EXPECT_EQ(count_in_runs(mtx, 4), 4L * 20 * 2000); }

TEST(Favourites, AreExcludedByThreadsThatComeLater) {
  qk::Mtx mtx;
  become_favourite_of(mtx);
  expect_exclusion(mtx);
  become_favourite_of(mtx);
  EXPECT_FALSE(mtx.held());
}

TEST(Favourites, KeepOthersOutWhileTheyAreInside) {
  qk::Mtx mtx;
  become_favourite_of(mtx);
  mtx.lock();
  mtx.lock();
  bool tried = true;
  std::thread([&] { tried = mtx.try_lock(); }).join();
  EXPECT_FALSE(tried);
  mtx.lock();  // its favour is withdrawn by now
  EXPECT_TRUE(mtx.held());
  std::atomic<bool> entered = false;
  std::thread other([&] {
    const std::lock_guard<qk::Mtx> lock(mtx);
    entered = true;
  });
  mtx.unlock();
  mtx.unlock();
  EXPECT_TRUE(mtx.held());
  EXPECT_FALSE(entered);
  mtx.unlock();
  other.join();
  EXPECT_TRUE(entered);
  EXPECT_FALSE(mtx.held());
}

TEST(Favourites, AreNotNeededByManyThreadsInTurn) {
  qk::Mtx mtx;
  long count = 0;
  std::vector<std::thread> threads;  // all live at once, so that no two have the same id
  std::atomic<int> turn = 0;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      while (turn != i) std::this_thread::yield();
      lock_often(mtx, 3000, [&] { ++count; });
      ++turn;
      while (turn != 8) std::this_thread::yield();
      lock_often(mtx, 3000, [&] { ++count; });
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(count, 8 * 6000);
}

TEST(Favourites, AreExcludedInTheChildOfAFork) {
  qk::Mtx mtx;
  std::thread([&] { become_favourite_of(mtx); }).join();
  become_favourite_of(mtx);
  const pid_t child = fork();
  if (child == 0) {
    mtx.lock();
    mtx.unlock();
    _exit(count_in_runs(mtx, 2) == 2L * 20 * 2000 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Favourites, DoNotExistWhereBarriersAreForbidden) {
  forbid_barriers();
  forget_barriers();
  qk::Mtx mtx;
  become_favourite_of(mtx);
  expect_exclusion(mtx);
  EXPECT_FALSE(qk::process_barrier_works());
}

TEST(Favourites, AreExcludedOnceBarriersAreForbidden) {
  qk::Mtx mtx;
  std::thread favourite([&] { become_favourite_of(mtx); });
  favourite.join();
  become_favourite_of(mtx);
  forbid_barriers();
  expect_exclusion(mtx);
  EXPECT_FALSE(qk::process_barrier_works());
}

TEST(Favourites, LeaveErrnoAloneWhereBarriersAreForbidden) {
  forbid_barriers();
  forget_barriers();
  qk::Mtx mtx;
  errno = EDOM;
  become_favourite_of(mtx);
  EXPECT_EQ(errno, EDOM);
}

}  // namespace
