#include "support/tls.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "tests/kit/failing_allocator.h"

namespace {

constinit thread_local int calls_of_operator_new = 0;

/** Makes malloc fail while the object exists. */
class ShortMemory {
 public:
  ShortMemory() { kit::fail_all_requests(); }
  ShortMemory(const ShortMemory&) = delete;
  ShortMemory& operator=(const ShortMemory&) = delete;
  ~ShortMemory() { kit::let_succeed(); }
};

constinit qk::TLS<int> global;
int seen_by_other_thread = -1;

}  // namespace

// Not inlined, as the compiler would then warn that new and delete don't match.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++calls_of_operator_new;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

TEST(Tls, IsZeroInEveryThreadUntilItIsSet) {
  EXPECT_EQ(*global, 0);
  global = 5;
  int seen = -1;
  std::thread([&] { seen = *global; }).join();
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(*global, 5);
}

TEST(Tls, CanBeSetInThreeWays) {
  qk::TLS<int> value;
  value.set(1);
  EXPECT_EQ(*value.get(), 1);
  value = 2;
  EXPECT_EQ(*value, 2);
  *value = 3;
  EXPECT_EQ(*value.get(), 3);
}

TEST(Tls, KeepsTheValuesOfManyThreadsApart) {
  qk::TLS<int> value;
  std::vector<int> seen(8);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&value, &seen, i] {
      for (int round = 0; round <= 1000; ++round) {
        value = *value + i;
      }
      seen[static_cast<std::size_t>(i)] = *value;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(seen, (std::vector<int>{0, 1001, 2002, 3003, 4004, 5005, 6006, 7007}));
}

TEST(Tls, KeepsAValuesAddressWhenOtherThreadsStart) {
  qk::TLS<std::string> value;
  const std::string* address = value.get();
  for (int i = 0; i < 20; ++i) std::thread([&] { value = "of another thread"; }).join();
  EXPECT_EQ(value.get(), address);
  EXPECT_EQ(*address, "");
}

TEST(Tls, KeepsObjectsOfOneTypeIndependent) {
  qk::TLS<int> first;
  qk::TLS<int> second;
  first = 1;
  EXPECT_EQ(*second, 0);
  second = 2;
  EXPECT_EQ(*first, 1);
}

TEST(Tls, KeepsAThreadsFirstValueWhenMemoryIsShort) {
  qk::TLS<int> value;
  int seen = -1;
  {
    const ShortMemory memory;
    value = 5012;
    seen = *value;
  }
  EXPECT_EQ(seen, 5012);
}

TEST(Tls, KeepsTheValueOfAShortageWhenMemoryReturns) {
  qk::TLS<int> value;
  {
    const ShortMemory memory;
    value = 5012;
  }
  EXPECT_EQ(*value, 5012);
  *value = 7;
  {
    const ShortMemory memory;
    value = 8;
  }
  EXPECT_EQ(*value, 8);
}

TEST(Tls, GivesAThreadsSpareSlotToTheLastObjectInNeed) {
  qk::TLS<int> first;
  qk::TLS<int> second;
  int seen = -1;
  {
    const ShortMemory memory;
    first = 1;
    seen = *second;
  }
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(*second, 0);
}

TEST(Tls, IsUnaffectedByAShortageInAnotherThread) {
  qk::TLS<int> value;
  value = 1;
  int seen = -1;
  std::thread([&] {
    const ShortMemory memory;
    value = 2;
    seen = *value;
  }).join();
  EXPECT_EQ(seen, 2);
  EXPECT_EQ(*value, 1);
}

TEST(Tls, NeverCallsOperatorNew) {
  qk::TLS<int> value;
  const int before = calls_of_operator_new;
  value = 1;
  EXPECT_EQ(calls_of_operator_new, before);
  EXPECT_EQ(*value, 1);
}

TEST(Tls, HoldsNoLockWhileItAllocates) {
  kit::during_next_request([] {
    seen_by_other_thread = global.held() ? -2 : 0;
    if (seen_by_other_thread == 0) std::thread([] { seen_by_other_thread = ++*global; }).join();
  });
  global = 5;
  EXPECT_EQ(seen_by_other_thread, 1);
  EXPECT_EQ(*global, 5);
}

TEST(Tls, CanBeUsedByTheAllocatorItself) {
  kit::during_next_request([] { global = 5012; });
  global = 5566;
  EXPECT_EQ(*global, 5566);
}

TEST(Tls, KeepsTheLastValueIfTheAllocatorSetsOneAndFails) {
  kit::fail_request(1);
  kit::during_next_request([] { global = 5012; });
  global = 5566;
  EXPECT_EQ(*global, 5566);
}

TEST(Tls, TakesTheValueOfAnAllocatorThatHadNoMemory) {
  kit::fail_request(2);
  kit::during_next_request([] { global = 5012; });
  EXPECT_EQ(*global, 5012);
}

}  // namespace
