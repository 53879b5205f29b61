#include "bench/ratios/many.h"

#include <array>
#include <memory>

#include "bench/ratios/allocators.h"
#include "bench/ratios/contest.h"
#include "bench/ratios/sizes.h"

namespace ratios {
namespace {

constexpr std::size_t kSizes = 1024;
constexpr std::size_t kCounts[] = {250000, 500000, 1000000};
constexpr int kRounds = 5;

/** Keeps the pointers, to free them. */
class MallocAndArray {
 public:
  void* allocate(std::size_t size) { return pieces_.emplace_back(std::malloc(size)); }
  ~MallocAndArray() {
    for (void* piece : pieces_) std::free(piece);
  }

 private:
  std::vector<void*> pieces_;
};

struct DataHandle : Qkmem {
  DataHandle() : Qkmem("DATA") {}
};

struct Taken {
  double allocation;
  double deletion;
};

template <class Owner>
Taken allocate_and_delete(std::size_t count) {
  static const auto sizes = sizes_between<kSizes>(16, 512);
  auto owner = std::make_unique<Owner>();
  const Nanoseconds allocation = timed([&] {
    for (std::size_t i = 0; i < count; ++i) use(owner->allocate(sizes[i % kSizes]));
  });
  const Nanoseconds deletion = timed([&] { owner.reset(); });
  const auto pieces = static_cast<double>(count);
  return {allocation.count() / pieces, deletion.count() / pieces};
}

struct Owner {
  const char* name;
  Taken (*run)(std::size_t count);
};

constexpr Owner kOwners[] = {{"malloc", allocate_and_delete<MallocAndArray>},
                             {"qkmem", allocate_and_delete<DataHandle>},
#ifdef HAVE_TALLOC
                             {"talloc", allocate_and_delete<Talloc>}
#endif
};

}  // namespace

std::vector<ManyPieces> measure_many() {
  std::vector<ManyPieces> results;
  for (const std::size_t count : kCounts) {
    std::array<std::vector<double>, std::size(kOwners)> allocations;
    std::array<std::vector<double>, std::size(kOwners)> deletions;
    for (int round = 0; round < kRounds; ++round) {
      for (std::size_t i = 0; i < std::size(kOwners); ++i) {
        const Taken taken = kOwners[i].run(count);
        allocations[i].push_back(taken.allocation);
        deletions[i].push_back(taken.deletion);
      }
    }
    for (std::size_t i = 0; i < std::size(kOwners); ++i) {
      results.push_back({kOwners[i].name, count, spread_of(allocations[i]).median,
                         spread_of(deletions[i]).median});
    }
  }
  return results;
}

}  // namespace ratios
