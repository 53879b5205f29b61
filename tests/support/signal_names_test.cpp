#include "support/signal_names.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>

namespace {

TEST(Signals, AreDescribedInEnglish) {
  EXPECT_STREQ(qk_signal_desc(SIGHUP), "Hangup");
  EXPECT_STREQ(qk_signal_desc(SIGINT), "Interrupt");
  EXPECT_STREQ(qk_signal_desc(SIGTERM), "Terminated");
  EXPECT_STREQ(qk_signal_desc(SIGSEGV), "Segmentation fault");
}

TEST(Signals, AreUnknownWithoutADescription) {
  for (const int number : {0, -1, 40, 65, 4711, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(qk_signal_desc(number), "Unknown signal") << number;
  }
}

TEST(Signals, AreSafeIfTheyAskAProgramToEnd) {
  for (const int number : {0, -1, SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    EXPECT_NE(qk_signal_safe(number), 0) << number;
  }
}

TEST(Signals, AreNotSafeIfTheyAreFaultsOrOthers) {
  for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM, SIGUSR1, 40, 4711}) {
    EXPECT_EQ(qk_signal_safe(number), 0) << number;
  }
}

}  // namespace
