// The workloads of bench/ratios as Google Benchmark benchmarks, named WORKLOAD/CONTESTANT. Takes
// the options of Google Benchmark, such as --benchmark_filter=pair/ or --benchmark_format=json. The
// time is that of one operation, the median of all rounds. The counters are the median and the
// quartiles of the ratio to the workload's first contestant. One contest measures all of them.
//
// A contest runs in a process of its own, the program `ratios`, because the library reads its
// environment once, and the C library's fast paths for one thread stay off after a second thread.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "bench/ratios/workloads.h"

namespace {

using ratios::Standing;
using ratios::Workload;

using Lines = std::vector<std::string>;

/** Returns what a command prints, or nothing if it fails. */
Lines output_of(const std::string& command) {
  Lines lines;
  FILE* output = popen(command.c_str(), "r");
  if (output == nullptr) return lines;
  char line[256];
  while (std::fgets(line, sizeof line, output) != nullptr) lines.emplace_back(line);
  return pclose(output) == 0 ? lines : Lines();
}

Standing standing_in(const std::string& line) {
  const std::size_t end = line.find('\t');
  Standing standing = {line.substr(0, end), 0, {}};
  std::sscanf(line.c_str() + std::min(end, line.size()), "%lf %lf %lf %lf", &standing.nanoseconds,
              &standing.ratio.median, &standing.ratio.low, &standing.ratio.high);
  return standing;
}

/** Returns the results of a contest, which the first call runs. */
const std::vector<Standing>& standings_of(const std::string& workload) {
  static std::map<std::string, std::vector<Standing>> known;
  const auto [entry, is_new] = known.try_emplace(workload);
  if (is_new) {
    for (const std::string& line : output_of("'" QKMEM_RATIOS "' " + workload)) {
      entry->second.push_back(standing_in(line));
    }
  }
  return entry->second;
}

void show(benchmark::State& state, const Standing& standing) {
  state.SetIterationTime(standing.nanoseconds * 1e-9);
  state.counters["ratio"] = standing.ratio.median;
  state.counters["low"] = standing.ratio.low;
  state.counters["high"] = standing.ratio.high;
}

void contest(benchmark::State& state, const std::string& workload, std::size_t contestant) {
  for ([[maybe_unused]] auto iteration : state) {
    const auto& standings = standings_of(workload);
    if (contestant >= standings.size()) {
      state.SkipWithError("the contest failed");
      return;
    }
    show(state, standings[contestant]);
  }
}

void enter(const Workload& workload) {
  for (std::size_t i = 0; i < workload.contestants.size(); ++i) {
    const std::string name = workload.name + "/" + workload.contestants[i].name;
    benchmark::RegisterBenchmark(
        name.c_str(),
        [workload = workload.name, i](benchmark::State& state) { contest(state, workload, i); })
        ->Iterations(1)
        ->UseManualTime();
  }
}

/** Memory in place of time: the counter is what stays, in megabytes. */
void left_by_handles(benchmark::State& state) {
  for ([[maybe_unused]] auto iteration : state) {
    const Lines lines = output_of("'" QKMEM_RATIOS "' --left");
    if (lines.size() != 1) {
      state.SkipWithError("the program failed");
      return;
    }
    state.counters["MB"] = std::atof(lines[0].c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (const Workload& workload : ratios::all_workloads()) enter(workload);
  benchmark::RegisterBenchmark("left_by_100000_handles/qkmem", left_by_handles)->Iterations(1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
