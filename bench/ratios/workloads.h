// All that is measured, a group for each file.
#ifndef QKMEM_BENCH_RATIOS_WORKLOADS_H_
#define QKMEM_BENCH_RATIOS_WORKLOADS_H_

#include <vector>

#include "bench/ratios/contest.h"

namespace ratios {

/** All groups below, in the order of the page. */
std::vector<Workload> all_workloads();

/** Memory that is allocated and soon released, by one thread or two. */
std::vector<Workload> pair_workloads();

/** One piece of many replaced by another. */
std::vector<Workload> live_workloads();

/** Many objects that go at once. */
std::vector<Workload> phase_workloads();

/** A million objects in the place of others. */
std::vector<Workload> refill_workloads();

/** One buffer that grows. */
std::vector<Workload> buffer_workloads();

/** Pairs of which each leaves lines in a file. */
std::vector<Workload> trace_workloads();

std::vector<Workload> report_workloads();

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_WORKLOADS_H_
