#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;

constexpr int kRounds = 500;

/** Leaves one piece of 30 and one of 7 bytes behind in each round. */
void work(int hid) {
  for (int i = 0; i < kRounds; ++i) {
    void* memory = qk_mem_imalloc(hid, 10, 16, "src/app.c", 1);
    void* zeroed = qk_mem_icalloc(hid, 5, 4, 16, "src/app.c", 2);
    memory = qk_mem_irealloc(hid, memory, 30, 16, "src/app.c", 3);
    qk_mem_istrdup(hid, "parall", "src/app.c", 4);
    qk_mem_ifree(hid, zeroed, "src/app.c", 5);
    ASSERT_NE(memory, nullptr);
  }
}

void work_twice(int one, int other) {
  std::thread first(work, one);
  std::thread second(work, other);
  first.join();
  second.join();
}

TEST(TwoThreads, LeaveExactTotalsOnAMultithreadedHandle) {
  Ledger ledger(Environment{}, "MULTITHREADED");
  work_twice(ledger.pool, ledger.pool);
  EXPECT_EQ(kit::data_of(ledger.pool), "2000 for 37000");
  EXPECT_EQ(kit::tag_of("AB"), "2000 for 37000");
}

TEST(TwoThreads, LeaveExactTotalsOnATagThatTheyShare) {
  Ledger ledger("");
  kit::Pool other("", "AB");
  work_twice(ledger.pool, other);
  EXPECT_EQ(kit::data_of(ledger.pool), "1000 for 18500");
  EXPECT_EQ(kit::data_of(other), "1000 for 18500");
  EXPECT_EQ(kit::tag_of("AB"), "2000 for 37000");
}

TEST(TwoThreads, HaveSeparateErrorCodes) {
  Ledger ledger("");
  EXPECT_EQ(qk_mem_imalloc(0, 10, 16, "src/app.c", 1), nullptr);
  int code = -1;
  std::thread([&code] { code = qk_mem_error(); }).join();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(qk_mem_error(), 5566);
}

}  // namespace
