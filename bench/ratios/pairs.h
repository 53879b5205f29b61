// Pieces that are allocated and released soon after, with sizes of 16 to 512 bytes.
#ifndef QKMEM_BENCH_RATIOS_PAIRS_H_
#define QKMEM_BENCH_RATIOS_PAIRS_H_

#include <array>
#include <cstddef>

#include "bench/ratios/contest.h"
#include "bench/ratios/sizes.h"

namespace ratios {

constexpr std::size_t kPairSizes = 1024;

using PairSizes = std::array<std::size_t, kPairSizes>;

inline const PairSizes& mixed_sizes() {
  static const auto sizes = sizes_between<kPairSizes>(16, 512);
  return sizes;
}

/** Allocates `kDepth` pieces and releases them, the oldest first, `times` times. */
template <std::size_t kDepth, class Allocator>
void allocate_and_release(Allocator& allocator, const PairSizes& sizes, std::size_t times) {
  std::array<void*, kDepth> live;
  std::size_t next = 0;
  while (times-- != 0) {
    for (void*& memory : live) use(memory = allocator.allocate(sizes[next++ % kPairSizes]));
    for (void* memory : live) allocator.release(memory);
  }
}

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_PAIRS_H_
