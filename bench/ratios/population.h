// Live pieces, one of which is replaced by another.
#ifndef QKMEM_BENCH_RATIOS_POPULATION_H_
#define QKMEM_BENCH_RATIOS_POPULATION_H_

#include <array>
#include <cstdint>
#include <vector>

#include "bench/ratios/contest.h"
#include "bench/ratios/sizes.h"

namespace ratios {

/** Pseudo-random numbers, much faster than what is measured (Marsaglia's xorshift). */
class Random {
 public:
  std::size_t below(std::size_t limit) {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return (state_ >> 32) * limit >> 32;
  }

 private:
  std::uint64_t state_ = 88172645463325252U;
};

template <class Allocator>
class Population {
 public:
  template <class... Arguments>
  explicit Population(std::size_t count, Arguments... arguments)
      : allocator_(arguments...), live_(count) {
    for (void*& memory : live_) use(memory = allocator_.allocate(next_size()));
  }
  ~Population() {
    for (std::size_t i = live_.size(); i-- > 0;) allocator_.release(live_[i]);
  }
  Population(const Population&) = delete;
  Population& operator=(const Population&) = delete;

  void replace_one() {
    void*& memory = live_[random_.below(live_.size())];
    allocator_.release(memory);
    use(memory = allocator_.allocate(next_size()));
  }

 private:
  static constexpr std::size_t kSizes = 1024;

  std::size_t next_size() { return sizes_[next_++ % kSizes]; }

  Allocator allocator_;
  std::array<std::size_t, kSizes> sizes_ = sizes_between<kSizes>(16, 512);
  std::size_t next_ = 0;
  Random random_;
  std::vector<void*> live_;
};

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_POPULATION_H_
