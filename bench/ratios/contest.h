// A workload is done by several contestants, and how long each takes is compared round by round.
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

/** Does the workload that many times and tells how long that took. */
using Run = std::function<Nanoseconds(std::size_t times)>;

/** One that does the workload. Nothing of it exists before `start` is called. */
struct Contestant {
  std::string name;
  std::function<Run()> start;
};

/** How many threads the process has while the workload is measured. */
enum class Threads { kOne, kIdleSecond, kTwo };

/** Of a workload that is only watched. */
constexpr double kNoReach = 0;

struct Workload {
  std::string name;
  std::string title;
  double reach;       // the ratio that qkmem shall reach, or kNoReach
  double operations;  // of which the workload consists, for the figures per operation
  Threads threads;
  std::vector<Contestant> contestants;  // the first is what the others are compared with
  std::string preloaded = "";           // library that the process has to be started with
};

/** Middle, and the quarters below and above which the outer values lie. */
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

/** Lets the contestants take turns, in rounds of some milliseconds. */
std::vector<Standing> measure(const Workload& workload);

Spread spread_of(std::vector<double> values);

/** Of the calling thread. */
Nanoseconds processor_time();

/**
 * What `body` takes of this thread's processor: whatever else the machine does meanwhile is out.
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

/** A user writes to what it was given. */
inline void use(void* memory) {
  *static_cast<volatile char*>(memory) = 1;
  asm volatile("" : : "r"(memory) : "memory");
}

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_CONTEST_H_
