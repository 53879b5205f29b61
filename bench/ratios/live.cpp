#include <cstdint>
#include <memory>
#include <string>

#include "bench/ratios/allocators.h"
#include "bench/ratios/sizes.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

constexpr std::size_t kSizes = 1024;

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
  std::size_t next_size() { return sizes_[next_++ % kSizes]; }

  Allocator allocator_;
  std::array<std::size_t, kSizes> sizes_ = sizes_between<kSizes>(16, 512);
  std::size_t next_ = 0;
  Random random_;
  std::vector<void*> live_;
};

template <class Allocator, class... Arguments>
Contestant replacing(const char* name, std::size_t count, Arguments... arguments) {
  return {name, [=]() -> Run {
            // Never deleted, because the process ends after the workload.
            auto* population = new Population<Allocator>(count, arguments...);
            return [population](std::size_t times) {
              return timed([&] {
                while (times-- != 0) population->replace_one();
              });
            };
          }};
}

Workload replacing_one_of(std::size_t count, const char* shown, double reach) {
  Workload workload = {
      "live_" + std::to_string(count),
      "Ordinary handle with " + std::string(shown) + " live pointers: a random one replaced",
      reach,
      1,
      Threads::kOne,
      {replacing<Malloc>("malloc", count), replacing<Qkmem>("qkmem", count, "DATA"),
#ifdef HAVE_TALLOC
       replacing<Talloc>("talloc", count),
#endif
       replacing<HashTable>("hash table", count)}};
  // With more pointers it is so slow that it would only lengthen the measurement of the others.
  if (count <= 10000) {
    workload.contestants.push_back(replacing<LinearSearch>("linear search", count));
  }
  return workload;
}

}  // namespace

std::vector<Workload> live_workloads() {
  return {replacing_one_of(1000, "1,000", 5), replacing_one_of(10000, "10,000", 6),
          replacing_one_of(100000, "100,000", 12), replacing_one_of(1000000, "1,000,000", 25)};
}

}  // namespace ratios
