// The trace of the C library.
#ifndef QKMEM_BENCH_RATIOS_MTRACED_H_
#define QKMEM_BENCH_RATIOS_MTRACED_H_

#include "bench/ratios/contest.h"

namespace ratios {

/**
 * Returns how long pairs of malloc and free take while mtrace() writes a line for each call, beside
 * as many `live` pieces, see traced workloads. The process must have been started with
 * libc_malloc_debug.so.0 preloaded.
 */
Nanoseconds time_mtraced(std::size_t live, std::size_t times);

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_MTRACED_H_
