#include "support/mtx.h"

#include <gtest/gtest.h>
#include <sys/single_threaded.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace std::chrono_literals;

constinit qk::Mtx constant_initialised;
static_assert(std::is_trivially_destructible_v<qk::Mtx>);
static_assert(!std::is_copy_constructible_v<qk::Mtx> && !std::is_copy_assignable_v<qk::Mtx>);

/** Whether another thread's try_lock() succeeds. */
bool another_thread_can_lock(qk::Mtx& mtx) {
  bool locked = false;
  std::thread([&] {
    locked = mtx.try_lock();
    if (locked) mtx.unlock();
  }).join();
  return locked;
}

// Comes first: the process must not have had a second thread yet.
TEST(Mtx, ExcludesThreadsStartedAfterItWasLocked) {
  if (!__libc_single_threaded) GTEST_SKIP() << "needs a process of its own";
  qk::Mtx mtx;
  mtx.lock();
  mtx.lock();
  std::atomic<bool> entered = false;
  std::thread other([&] {
    const std::lock_guard<qk::Mtx> lock(mtx);
    entered = true;
  });
  std::this_thread::sleep_for(50ms);
  mtx.unlock();
  std::this_thread::sleep_for(50ms);
  EXPECT_FALSE(entered);
  mtx.unlock();
  other.join();
  EXPECT_TRUE(entered);
  EXPECT_TRUE(another_thread_can_lock(mtx));
}

TEST(Mtx, KeepsCountsOfSeveralThreadsExact) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 20000;
  qk::Mtx mtx;
  long count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const std::lock_guard<qk::Mtx> outer(mtx);
        const std::lock_guard<qk::Mtx> inner(mtx);
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 160000);
  EXPECT_FALSE(mtx.held());
}

TEST(Mtx, WakesEveryThreadThatSleepsOnIt) {
  qk::Mtx mtx;
  int passed = 0;
  std::vector<std::thread> threads;
  mtx.lock();
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&] {
      const std::lock_guard<qk::Mtx> lock(mtx);
      std::this_thread::sleep_for(2ms);
      ++passed;
    });
  }
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(passed, 0);
  mtx.unlock();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(passed, 6);
}

TEST(Mtx, IsFreeForOthersOnlyAfterAsManyUnlocksAsLocks) {
  std::thread([] {}).join();
  qk::Mtx mtx;
  mtx.lock();
  EXPECT_TRUE(mtx.try_lock());
  mtx.lock();
  EXPECT_FALSE(another_thread_can_lock(mtx));
  mtx.unlock();
  EXPECT_FALSE(another_thread_can_lock(mtx));
  mtx.unlock();
  EXPECT_FALSE(another_thread_can_lock(mtx));
  mtx.unlock();
  EXPECT_TRUE(another_thread_can_lock(mtx));
}

TEST(Mtx, IsReportedAsHeldOnlyToItsHolder) {
  EXPECT_FALSE(constant_initialised.held());
  constant_initialised.lock();
  EXPECT_TRUE(constant_initialised.held());
  bool held_by_other = true;
  std::thread([&] { held_by_other = constant_initialised.held(); }).join();
  EXPECT_FALSE(held_by_other);
  constant_initialised.unlock();
  EXPECT_FALSE(constant_initialised.held());
}

TEST(Mtx, CanBeUnlockedAndRelockedByUniqueLock) {
  qk::Mtx mtx;
  std::unique_lock<qk::Mtx> lock(mtx);
  EXPECT_TRUE(mtx.held());
  lock.unlock();
  EXPECT_FALSE(mtx.held());
  EXPECT_TRUE(lock.try_lock());
  EXPECT_TRUE(mtx.held());
}

TEST(Mtx, SleepsWhileItWaits) {
  qk::Mtx mtx;
  mtx.lock();
  timespec used = {};
  std::thread waiter([&] {
    const std::lock_guard<qk::Mtx> lock(mtx);
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  });
  std::this_thread::sleep_for(300ms);
  mtx.unlock();
  waiter.join();
  EXPECT_EQ(used.tv_sec, 0);
  EXPECT_LT(used.tv_nsec, 100'000'000);
}

TEST(Mtx, KeepsErrnoEvenIfASignalInterruptsTheWait) {
  struct sigaction interrupting = {};
  interrupting.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupting, nullptr);
  qk::Mtx mtx;
  mtx.lock();
  int errno_of_waiter = 0;
  std::thread waiter([&] {
    errno = ENOMEM;
    mtx.lock();
    mtx.unlock();
    errno_of_waiter = errno;
  });
  std::this_thread::sleep_for(50ms);
  pthread_kill(waiter.native_handle(), SIGUSR1);
  std::this_thread::sleep_for(50ms);
  errno = EBADF;
  mtx.unlock();
  EXPECT_EQ(errno, EBADF);
  waiter.join();
  EXPECT_EQ(errno_of_waiter, ENOMEM);
}

}  // namespace
