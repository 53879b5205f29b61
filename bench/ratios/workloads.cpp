#include "bench/ratios/workloads.h"

#include <algorithm>
#include <iterator>

namespace ratios {

std::vector<Workload> all_workloads() {
  std::vector<Workload> all;
  for (auto* group : {pair_workloads, thread_workloads, live_workloads, release_workloads,
                      handle_workloads, phase_workloads, refill_workloads, buffer_workloads,
                      trace_workloads, profile_workloads, report_workloads, search_workloads}) {
    auto workloads = group();
    std::move(workloads.begin(), workloads.end(), std::back_inserter(all));
  }
  return all;
}

}  // namespace ratios
