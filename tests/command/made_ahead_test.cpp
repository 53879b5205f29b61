// Batches that a thread makes while another one takes those before.
#include "tools/qkmem/input/made_ahead.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <vector>

namespace {

using Numbers = std::vector<int>;
using qk::command::MadeAhead;

/** Counts up from 1 to `last`, a number a batch. */
class Counter {
 public:
  explicit Counter(int last) : last_(last) {}

  bool operator()(Numbers& numbers) {
    if (count_ == last_) return false;
    numbers.assign(1, ++count_);
    made = count_;
    return true;
  }

  std::atomic<int> made = 0;

 private:
  const int last_;
  int count_ = 0;
};

Numbers all_of(MadeAhead<Numbers>& ahead) {
  Numbers all;
  while (const Numbers* const next = ahead.next()) {
    all.insert(all.end(), next->begin(), next->end());
  }
  return all;
}

Numbers up_to(int last) {
  Numbers numbers;
  for (int number = 1; number <= last; ++number) numbers.push_back(number);
  return numbers;
}

TEST(MadeAhead, BatchesComeInTheOrderInWhichTheyWereMade) {
  Counter counter(1'000);
  MadeAhead<Numbers> ahead(std::ref(counter));
  EXPECT_EQ(up_to(1'000), all_of(ahead));
  EXPECT_EQ(nullptr, ahead.next());
}

TEST(MadeAhead, ABatchStaysAsItIsWhileOthersAreMade) {
  constexpr int kMost = 8;  // with the one that is looked at
  Counter counter(100);
  MadeAhead<Numbers> ahead(std::ref(counter));
  const Numbers* const first = ahead.next();
  ASSERT_NE(nullptr, first);
  while (counter.made < kMost) usleep(100);
  usleep(1'000);
  EXPECT_EQ(kMost, counter.made);
  EXPECT_EQ(Numbers{1}, *first);
}

TEST(MadeAhead, AnErrorComesBehindTheBatchesBeforeIt) {
  MadeAhead<Numbers> ahead([count = 0](Numbers& numbers) mutable {
    if (++count == 4) throw std::runtime_error("no more of it");
    numbers.assign(1, count);
    return true;
  });
  for (int number = 1; number < 4; ++number) {
    const Numbers* const next = ahead.next();
    ASSERT_NE(nullptr, next);
    EXPECT_EQ(Numbers{number}, *next);
  }
  try {
    static_cast<void>(ahead.next());
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ("no more of it", error.what());
  }
  EXPECT_EQ(nullptr, ahead.next());
}

TEST(MadeAhead, WhoLeavesEarlyInterruptsAWait) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  {
    MadeAhead<char> ahead([&ends](char& byte) { return read(ends[0], &byte, 1) == 1; },
                          [&ends] { close(ends[1]); });
    ASSERT_EQ(1, write(ends[1], "a", 1));
    const char* const next = ahead.next();
    ASSERT_NE(nullptr, next);
    EXPECT_EQ('a', *next);
  }
  close(ends[0]);
}

TEST(MadeAhead, WithoutAThreadBatchesAreMadeWhenTheyAreWanted) {
  pthread_attr_t attributes;
  ASSERT_EQ(0, pthread_attr_init(&attributes));
  // No machine has a stack of this size.
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, std::size_t{1} << 50));
  ASSERT_EQ(0, pthread_setattr_default_np(&attributes));
  Counter counter(1'000);
  MadeAhead<Numbers> ahead(std::ref(counter));
  usleep(1'000);
  EXPECT_EQ(0, counter.made);
  EXPECT_EQ(up_to(1'000), all_of(ahead));
}

}  // namespace
