#include "support/number_set.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <vector>

namespace {

/** A set with its memory. */
class Set {
 public:
  explicit Set(std::uint32_t limit)
      : words_(qk::NumberSet::words_for(limit)), set_(words_.data(), limit) {}

  qk::NumberSet* operator->() { return &set_; }

  void add_below(std::uint32_t end) {
    for (std::uint32_t number = 0; number < end; ++number) set_.add(number);
  }

 private:
  std::vector<std::uint64_t> words_;
  qk::NumberSet set_;
};

TEST(NumberSet, NeedsAWordForEach64NumbersAndForEach64Words) {
  EXPECT_EQ(qk::NumberSet::words_for(1), 1U);
  EXPECT_EQ(qk::NumberSet::words_for(64), 1U);
  EXPECT_EQ(qk::NumberSet::words_for(65), 3U);
  EXPECT_EQ(qk::NumberSet::words_for(4096), 65U);
  EXPECT_EQ(qk::NumberSet::words_for(4097), 65U + 3U);
}

TEST(NumberSet, MissesAllNumbersAtFirst) {
  Set set(1000);
  EXPECT_EQ(set->lowest_missing(), 0U);
  EXPECT_FALSE(set->contains(0));
  EXPECT_FALSE(set->contains(999));
  EXPECT_EQ(set->limit(), 1000U);
}

TEST(NumberSet, HasNoNumberWithoutMemory) {
  const qk::NumberSet set;
  EXPECT_EQ(set.limit(), 0U);
  EXPECT_EQ(set.lowest_missing(), 0U);
  EXPECT_FALSE(set.contains(0));
}

TEST(NumberSet, FindsTheNumberAboveAllThatFollowEachOther) {
  Set set(300000);
  for (std::uint32_t number = 0; number < 300000; ++number) {
    ASSERT_EQ(set->lowest_missing(), number);
    set->add(number);
  }
}

TEST(NumberSet, MissesNothingBelowItsLimitWhenItIsFull) {
  for (const std::uint32_t limit : {1U, 63U, 64U, 65U, 4095U, 4096U, 4097U, 262144U, 262145U}) {
    Set set(limit);
    set.add_below(limit);
    EXPECT_EQ(set->lowest_missing(), limit) << limit;
    set->remove(limit - 1);
    EXPECT_EQ(set->lowest_missing(), limit - 1) << limit;
  }
}

TEST(NumberSet, FindsTheLowestOfSeveralGaps) {
  Set set(5000);
  set.add_below(5000);
  for (const std::uint32_t number : {4999U, 64U, 4096U, 63U}) {
    set->remove(number);
    EXPECT_EQ(set->lowest_missing(), number == 4096 ? 64U : number);
  }
}

TEST(NumberSet, TakesRepeatedChangesOnce) {
  Set set(5000);
  set.add_below(4096);
  set->add(7);
  EXPECT_EQ(set->lowest_missing(), 4096U);
  set->remove(7);
  set->remove(7);
  EXPECT_EQ(set->lowest_missing(), 7U);
  set->add(7);
  EXPECT_EQ(set->lowest_missing(), 4096U);
}

TEST(NumberSet, AgreesWithASortedSetAfterRandomChanges) {
  constexpr std::uint32_t kLimit = 10000;
  std::mt19937 random(20261122);
  Set set(kLimit);
  std::set<std::uint32_t> missing;
  for (std::uint32_t number = 0; number < kLimit; ++number) missing.insert(number);
  for (int i = 0; i < 200000; ++i) {
    const auto number = static_cast<std::uint32_t>(random() % kLimit);
    // More insertions than removals, so that the set becomes nearly full.
    if (random() % 100 < 98) {
      set->add(number);
      missing.erase(number);
    } else {
      set->remove(number);
      missing.insert(number);
    }
    ASSERT_EQ(set->lowest_missing(), missing.empty() ? kLimit : *missing.begin());
    ASSERT_EQ(set->contains(number), missing.count(number) == 0);
  }
}

}  // namespace
