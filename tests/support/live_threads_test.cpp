#include "support/live_threads.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <latch>
#include <thread>

namespace {

TEST(LiveThreads, AreNoneInAProcessThatStartsNone) { EXPECT_FALSE(qk::has_other_threads()); }

/** Runs `look` beside a thread whose name, if it ended the name, would be followed by flags. */
template <class Look>
void beside_a_thread(Look look) {
  std::latch started(1);
  std::latch may_end(1);
  std::thread thread([&] {
    prctl(PR_SET_NAME, ") 1 2 3 4 5 6 4");
    started.count_down();
    may_end.wait();
  });
  started.wait();
  look();
  may_end.count_down();
  thread.join();
}

TEST(LiveThreads, AreFoundWhateverTheirNames) {
  beside_a_thread([] { EXPECT_TRUE(qk::has_other_threads()); });
}

TEST(LiveThreads, DoNotCountOnceTheyAreJoined) {
  for (int round = 0; round < 2000; ++round) {
    std::thread([] {}).join();
    ASSERT_FALSE(qk::has_other_threads()) << "round " << round;
  }
}

/** The kernel lists the first thread of a process until the last one ends. */
TEST(LiveThreads, DoNotIncludeAFirstThreadThatHasEnded) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer ends with the first thread";
#endif
  const pid_t child = fork();
  if (child == 0) {
    std::thread([first = pthread_self()] {
      pthread_join(first, nullptr);
      _exit(qk::has_other_threads() ? 1 : 0);
    }).detach();
    syscall(SYS_exit, 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(LiveThreads, DoNotCountInTheChildOfAFork) {
  beside_a_thread([] {
    const pid_t child = fork();
    if (child == 0) _exit(qk::has_other_threads() ? 1 : 0);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  });
}

TEST(LiveThreads, AreLookedForWithoutAChangeOfErrno) {
  beside_a_thread([] {
    errno = ENOTTY;
    EXPECT_TRUE(qk::has_other_threads());
    EXPECT_EQ(errno, ENOTTY);
  });
}

}  // namespace
