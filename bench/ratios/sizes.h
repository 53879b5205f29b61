// The sizes that the workloads allocate: the same in every run and for every contestant.
#ifndef QKMEM_BENCH_RATIOS_SIZES_H_
#define QKMEM_BENCH_RATIOS_SIZES_H_

#include <array>
#include <cstddef>
#include <random>

namespace ratios {

template <std::size_t kCount>
std::array<std::size_t, kCount> sizes_between(unsigned smallest, unsigned largest) {
  std::mt19937 random(1);
  std::array<std::size_t, kCount> sizes;
  for (std::size_t& size : sizes) size = smallest + random() % (largest - smallest + 1);
  return sizes;
}

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_SIZES_H_
