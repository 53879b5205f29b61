#include "support/thread_id.h"

#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace {

TEST(ThreadId, StaysTheSameInAThread) {
  const unsigned long own = qk_gettid();
  EXPECT_GE(own, 1UL);
  EXPECT_EQ(qk_gettid(), own);
}

TEST(ThreadId, IsNotReusedAfterItsThreadEnded) {
  std::set<unsigned long> seen{qk_gettid()};
  for (int i = 0; i < 50; ++i) std::thread([&] { seen.insert(qk_gettid()); }).join();
  EXPECT_EQ(seen.size(), 51U);
}

TEST(ThreadId, DiffersBetweenConcurrentThreads) {
  std::mutex guard;
  std::set<unsigned long> seen;
  std::vector<std::thread> threads;
  for (int i = 0; i < 16; ++i) {
    threads.emplace_back([&] {
      const unsigned long own = qk_gettid();
      const std::lock_guard<std::mutex> lock(guard);
      seen.insert(own);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(seen.size(), 16U);
}

}  // namespace
