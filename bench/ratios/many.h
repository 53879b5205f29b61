// Many pieces of memory on one handle: does the cost of each grow with their number?
#ifndef QKMEM_BENCH_RATIOS_MANY_H_
#define QKMEM_BENCH_RATIOS_MANY_H_

#include <cstddef>
#include <vector>

namespace ratios {

struct ManyPieces {
  const char* name;
  std::size_t count;
  double allocation;  // nanoseconds per piece
  double deletion;    // of all at once, nanoseconds per piece
};

/** Returns the medians of several rounds for each count and contestant. */
std::vector<ManyPieces> measure_many();

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_MANY_H_
