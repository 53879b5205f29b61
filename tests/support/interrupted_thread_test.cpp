#include "support/interrupted_thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>

namespace {

#if (defined(__x86_64__) || defined(__aarch64__)) && !defined(__SANITIZE_THREAD__)
constexpr bool kCanTell = true;
#else
constexpr bool kCanTell = false;  // the thread sanitizer delivers signals later
#endif

std::atomic<int> waits;
std::atomic<int> runs;

void note(int /*signal_number*/, siginfo_t* /*info*/, void* context) {
  ++(qk::interrupted_thread(context).waits_in_kernel ? waits : runs);
}

/** Whether a thread is found waiting, once it has got there. */
template <class Wait>
bool is_found_waiting(Wait wait) {
  struct sigaction action = {};
  action.sa_sigaction = note;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigaction(SIGUSR1, &action, nullptr);
  std::atomic<bool> begun = false;
  std::thread thread([&begun, wait] {
    begun = true;
    wait();
  });
  while (!begun) std::this_thread::yield();
  waits = 0;
  runs = 0;
  while (waits == 0 && runs < 200) {
    pthread_kill(thread.native_handle(), SIGUSR1);
    usleep(1000);
  }
  const bool found = waits > 0;
  thread.detach();
  return found;
}

class InterruptedThread : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kCanTell) GTEST_SKIP() << "nothing is known of system calls here";
  }
};

TEST_F(InterruptedThread, WaitsInTheKernelDuringSystemCalls) {
  EXPECT_TRUE(is_found_waiting([] {
    for (;;) pause();
  }));
  EXPECT_TRUE(is_found_waiting([] {
    char byte = 0;
    int ends[2];
    if (pipe(ends) == 0 && read(ends[0], &byte, 1) != 1) return;
  }));
  EXPECT_TRUE(is_found_waiting([] {
    static std::mutex mutex;
    // Never destroyed: that would wait for the thread.
    static auto& never = *new std::condition_variable;
    std::unique_lock lock(mutex);
    for (;;) never.wait(lock);
  }));
}

TEST_F(InterruptedThread, DoesNotCountAsWaitingForALock) {
  static std::mutex mutex;
  mutex.lock();
  EXPECT_FALSE(is_found_waiting([] { mutex.lock(); }));
}

TEST_F(InterruptedThread, DoesNotWaitWhileItWorks) {
  EXPECT_FALSE(is_found_waiting([] {
    static std::atomic<unsigned> count;
    for (;;) ++count;
  }));
}

}  // namespace
