#ifndef QKMEM_BENCH_RATIOS_PROFILES_H_
#define QKMEM_BENCH_RATIOS_PROFILES_H_

namespace ratios {

/**
 * Runs a peer of the profile's workloads in this process: for each number of times in the standard
 * input, prints how many nanoseconds so many runs took.
 */
void serve_peer(const char* name);

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_PROFILES_H_
