// All that is measured, a group for each file.
#ifndef QKMEM_BENCH_RATIOS_WORKLOADS_H_
#define QKMEM_BENCH_RATIOS_WORKLOADS_H_

#include <vector>

#include "bench/ratios/contest.h"

namespace ratios {

/** Memory that is allocated and soon released, by one thread or two. */
std::vector<Workload> pair_workloads();

/** One piece of many replaced by another. */
std::vector<Workload> live_workloads();

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_WORKLOADS_H_
