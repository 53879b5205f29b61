#include "bench/ratios/contest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace {

using ratios::Contestant;
using ratios::Nanoseconds;
using ratios::Run;
using ratios::Standing;
using ratios::Threads;
using ratios::Workload;

constexpr double kTurn = 2e6;  // nanoseconds

/** What contestants were asked for, in order. */
std::vector<std::string>& turns() {
  static std::vector<std::string> all;
  return all;
}

/**
 * Says that its nth run takes `taken_in(n)` turns, and the first one as long as the warm-up. It takes
 * no time itself. As its runs fill turns, it is asked for one at a time.
 */
template <class TakenIn>
Contestant saying(const std::string& name, TakenIn taken_in) {
  return {name, [=]() -> Run {
            return [=, turn = std::make_shared<int>(0)](std::size_t times) {
              turns().push_back(name);
              const int number = (*turn)++;
              const double turns_taken = number == 0 ? 25 : taken_in(number);
              return Nanoseconds(turns_taken * kTurn * static_cast<double>(times));
            };
          }};
}

Workload workload_of(std::vector<Contestant> contestants, double operations = 1) {
  turns().clear();
  return {"name", "title", 0, operations, Threads::kOne, std::move(contestants)};
}

TEST(Spread, HasTheMedianAndTheQuartiles) {
  const ratios::Spread spread = ratios::spread_of({9, 1, 8, 2, 7, 3, 6, 4, 5});
  EXPECT_EQ(spread.low, 3);
  EXPECT_EQ(spread.median, 5);
  EXPECT_EQ(spread.high, 7);
}

TEST(Contest, ComparesTheTimesOfTheSameRound) {
  // The machine slows down more and more, for both alike.
  const std::vector<Standing> standings =
      measure(workload_of({saying("one", [](int turn) { return 1.0 + turn; }),
                           saying("twice", [](int turn) { return 2.0 + 2 * turn; })}));
  ASSERT_EQ(standings.size(), 2U);
  EXPECT_EQ(standings[0].ratio.low, 1);
  EXPECT_EQ(standings[0].ratio.high, 1);
  EXPECT_EQ(standings[1].name, "twice");
  EXPECT_EQ(standings[1].ratio.low, 2);
  EXPECT_EQ(standings[1].ratio.median, 2);
  EXPECT_EQ(standings[1].ratio.high, 2);
}

TEST(Contest, TakesTheMedianOfAllRounds) {
  const std::vector<Standing> standings = measure(
      workload_of({saying("steady", [](int) { return 1.0; }),
                   saying("disturbed", [](int turn) { return turn % 8 == 5 ? 1000.0 : 3.0; })}));
  EXPECT_EQ(standings[1].ratio.low, 3);
  EXPECT_EQ(standings[1].ratio.median, 3);
  EXPECT_EQ(standings[1].ratio.high, 3);
}

TEST(Contest, ShowsTheTimeOfOneOperation) {
  const std::vector<Standing> standings =
      measure(workload_of({saying("one", [](int) { return 1.0; })}, 1000));
  EXPECT_EQ(standings[0].nanoseconds, kTurn / 1000);
}

TEST(Contest, LetsAnotherContestantBeginEachRound) {
  const auto steady = [](int) { return 1.0; };
  static_cast<void>(
      measure(workload_of({saying("a", steady), saying("b", steady), saying("c", steady)})));
  // Each has found how often it fits into a turn, and the first round was to warm up.
  const std::vector<std::string> first(turns().begin() + 6, turns().begin() + 15);
  EXPECT_EQ(first, (std::vector<std::string>{"a", "b", "c", "b", "c", "a", "c", "a", "b"}));
}

TEST(Contest, BeginsWhenWhatIsDoneOnlyOnceIsDone) {
  std::size_t last_times = 0;
  double nanoseconds_once = 9 * kTurn;
  const Contestant contestant = {"lazy", [&]() -> ratios::Run {
                                   return [&](std::size_t times) {
                                     last_times = times;
                                     const double once = std::min(nanoseconds_once, 3 * kTurn);
                                     nanoseconds_once -= once;
                                     return Nanoseconds(once + 1000.0 * static_cast<double>(times));
                                   };
                                 }};
  EXPECT_EQ(measure(workload_of({contestant}))[0].nanoseconds, 1000);
  EXPECT_EQ(last_times, kTurn / 1000);
}

TEST(Contest, HasFiveTo40Rounds) {
  static_cast<void>(measure(workload_of({saying("quick", [](int) { return 1.0; })})));
  EXPECT_GE(turns().size(), 2U + 5U);
  EXPECT_LE(turns().size(), 2U + 40U);
}

}  // namespace
