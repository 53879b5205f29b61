// All workloads, one group per file.
#ifndef QKMEM_BENCH_RATIOS_WORKLOADS_H_
#define QKMEM_BENCH_RATIOS_WORKLOADS_H_

#include <vector>

#include "bench/ratios/contest.h"

namespace ratios {

/** Returns all groups below, in the order of docs/performance.md. */
std::vector<Workload> all_workloads();

/** Memory that is released soon after its allocation, by one thread. */
std::vector<Workload> pair_workloads();

/** The same by several threads, on one handle or on a handle for each. */
std::vector<Workload> thread_workloads();

/** One of many live pieces is replaced by another. */
std::vector<Workload> live_workloads();

/** Many pieces that are released one by one, in an order that makes them hard to find. */
std::vector<Workload> release_workloads();

/** One of many handles comes and goes. */
std::vector<Workload> handle_workloads();

/** Many objects that are released together. */
std::vector<Workload> phase_workloads();

/** A million objects that reuse the blocks of earlier ones. */
std::vector<Workload> refill_workloads();

/** A buffer that grows. */
std::vector<Workload> buffer_workloads();

/** Pairs that write lines to a trace file. */
std::vector<Workload> trace_workloads();

/** Pairs with the profile on. */
std::vector<Workload> profile_workloads();

/** Reports of many live pointers. */
std::vector<Workload> report_workloads();

/** Searches for blocks that nothing refers to. */
std::vector<Workload> search_workloads();

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_WORKLOADS_H_
