#include "bench/ratios/contest.h"

#include <time.h>

#include <algorithm>
#include <cmath>

namespace ratios {
namespace {

constexpr Nanoseconds kTurn = std::chrono::milliseconds(2);            // short: few disturbances
constexpr Nanoseconds kTurnOfSeveral = std::chrono::milliseconds(25);  // threads sleep and wake
constexpr Nanoseconds kWarmUp = std::chrono::milliseconds(50);
constexpr Nanoseconds kAllTurns = std::chrono::seconds(1);
constexpr double kFewestRounds = 5;
constexpr double kMostRounds = 40;

/** A contestant that has started, with its time in each round. */
struct Entry {
  std::string name;
  Run run;
  std::size_t times;           // runs of the workload per turn
  std::vector<double> rounds;  // nanoseconds per run of the workload
};

/**
 * Returns how many times a contestant runs the workload in a turn, once it has warmed up: what is
 * done only once, such as making an index, says nothing about the turns.
 */
std::size_t times_in_a_turn(const Run& run, Nanoseconds turn) {
  std::size_t times = 1;
  Nanoseconds all{0};
  for (;;) {
    const Nanoseconds taken = run(times);
    all += taken;
    if (taken < turn / 2) {
      times *= 2;
    } else if (all >= kWarmUp) {
      const double fitting = static_cast<double>(times) * (turn / taken);
      return std::max<std::size_t>(1, static_cast<std::size_t>(fitting));
    }
  }
}

std::vector<Entry> started(const Workload& workload) {
  const Nanoseconds turn = workload.threads == Threads::kSeveral ? kTurnOfSeveral : kTurn;
  std::vector<Entry> entries;
  for (const Contestant& contestant : workload.contestants) {
    entries.push_back({contestant.name, contestant.start(), 1, {}});
  }
  for (Entry& entry : entries) entry.times = times_in_a_turn(entry.run, turn);
  return entries;
}

void take_turn(Entry& entry) {
  entry.rounds.push_back(entry.run(entry.times).count() / static_cast<double>(entry.times));
}

/** Each contestant takes one turn. Another one is first in each round. */
void play_round(std::vector<Entry>& entries, std::size_t first) {
  for (std::size_t i = 0; i < entries.size(); ++i) take_turn(entries[(first + i) % entries.size()]);
}

std::size_t rounds_that_fit(std::vector<Entry>& entries) {
  const Nanoseconds round = elapsed([&] { play_round(entries, 0); });
  for (Entry& entry : entries) entry.rounds.clear();  // the first round is a warm-up
  return static_cast<std::size_t>(std::clamp(kAllTurns / round, kFewestRounds, kMostRounds));
}

Spread ratio_to(const Entry& baseline, const Entry& entry) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < entry.rounds.size(); ++i) {
    ratios.push_back(entry.rounds[i] / baseline.rounds[i]);
  }
  return spread_of(std::move(ratios));
}

}  // namespace

Nanoseconds processor_time() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

Spread spread_of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const auto at = [&](double part) {
    return values[static_cast<std::size_t>(
        std::lround(part * static_cast<double>(values.size() - 1)))];
  };
  return {at(0.25), at(0.5), at(0.75)};
}

std::vector<Standing> measure(const Workload& workload) {
  std::vector<Entry> entries = started(workload);
  const std::size_t rounds = rounds_that_fit(entries);
  for (std::size_t round = 0; round < rounds; ++round) play_round(entries, round);

  std::vector<Standing> standings;
  for (const Entry& entry : entries) {
    standings.push_back({entry.name, spread_of(entry.rounds).median / workload.operations,
                         ratio_to(entries.front(), entry)});
  }
  return standings;
}

}  // namespace ratios
