#include <string>

#include "bench/ratios/allocators.h"
#include "bench/ratios/population.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

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

Workload replacing_one_of(std::size_t count, const char* shown, Goal goal) {
  Workload workload = {
      "live_" + std::to_string(count),
      "Ordinary handle with " + std::string(shown) + " live pointers: a random one replaced",
      goal,
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
  return {replacing_one_of(1000, "1,000", 3.6), replacing_one_of(10000, "10,000", 4.6),
          replacing_one_of(100000, "100,000", 12), replacing_one_of(1000000, "1,000,000", 15)};
}

}  // namespace ratios
