// Several contestants run the same workload, and their times are compared round by round.
#ifndef QKMEM_BENCH_RATIOS_CONTEST_H_
#define QKMEM_BENCH_RATIOS_CONTEST_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace ratios {

using Nanoseconds = std::chrono::duration<double, std::nano>;

/** Runs the workload `times` times and returns how long that took. */
using Run = std::function<Nanoseconds(std::size_t times)>;

/** An implementation of the workload. It allocates nothing before `start` is called. */
struct Contestant {
  std::string name;
  std::function<Run()> start;
};

/** Which threads the process has while the workload is measured. */
enum class Threads { kOne, kIdleSecond, kSeveral };

/**
 * What qkmem is held to: a ratio to the first contestant, a multiple of what a peer takes in the
 * same run, either of them, or both.
 */
struct Goal {
  double ratio = 0;       // 0 for none
  double multiple = 0;    // 0 for none
  const char* peer = "";  // the name of a contestant
  const char* join = "or";

  constexpr Goal(double most) : ratio(most) {}  // not explicit: a number is the usual goal
  constexpr Goal(double most, double times, const char* of, const char* by)
      : ratio(most), multiple(times), peer(of), join(by) {}

  [[nodiscard]] constexpr Goal or_times(double times, const char* of) const {
    return {ratio, times, of, "or"};
  }
  /** Equal times don't reach it. */
  [[nodiscard]] constexpr Goal and_below(const char* of) const { return {ratio, 1, of, "and"}; }
  /** The ratio is to be added to that of a contestant. */
  [[nodiscard]] constexpr Goal above(const char* of) const { return {ratio, 1, of, "above"}; }
};

constexpr Goal kNoGoal = 0;

struct Workload {
  std::string name;
  std::string title;
  Goal goal;
  double operations;  // in one run of the workload, for the figures per operation
  Threads threads;
  std::vector<Contestant> contestants;  // the first is the baseline of the ratios
};

/** The median and the two quartiles. */
struct Spread {
  double low;
  double median;
  double high;
};

struct Standing {
  std::string name;
  double nanoseconds;  // per operation, the median of all rounds
  Spread ratio;        // to the first contestant in the same round
};

/** Measures the contestants in turns of some milliseconds, round by round. */
std::vector<Standing> measure(const Workload& workload);

Spread spread_of(std::vector<double> values);

/** Returns the processor time of the calling thread. */
Nanoseconds processor_time();

/**
 * Returns the processor time of `body` in this thread. Other work of the machine doesn't count.
 */
template <class Body>
Nanoseconds timed(Body&& body) {
  const Nanoseconds start = processor_time();
  std::forward<Body>(body)();
  return processor_time() - start;
}

template <class Body>
Nanoseconds elapsed(Body&& body) {
  const auto start = std::chrono::steady_clock::now();
  std::forward<Body>(body)();
  return std::chrono::steady_clock::now() - start;
}

/** Writes to the memory, as a user does. */
inline void use(void* memory) {
  *static_cast<volatile char*>(memory) = 1;
  asm volatile("" : : "r"(memory) : "memory");
}

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_CONTEST_H_
