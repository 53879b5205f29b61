#include <memory>
#include <memory_resource>
#include <string>
#include <vector>

#include "bench/ratios/allocators.h"
#include "bench/ratios/sizes.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

constexpr std::size_t kSizes = 1024;
constexpr std::size_t kPieces = 1000000;

/** Keeps the pointers, to free them. */
class EachFreed {
 public:
  void* allocate(std::size_t size) { return pieces_.emplace_back(std::malloc(size)); }
  void clear() {
    for (void* piece : pieces_) std::free(piece);
    pieces_.clear();
  }

 private:
  std::vector<void*> pieces_;
};

template <class Arena>
void fill(Arena& arena) {
  static const auto sizes = sizes_between<kSizes>(8, 128);
  for (std::size_t i = 0; i < kPieces; ++i) use(arena.allocate(sizes[i % kSizes]));
}

/** The time doesn't include the clear before each filling. */
template <class Arena, class... Arguments>
Contestant refilling(const char* name, Arguments... arguments) {
  return {name, [=]() -> Run {
            auto arena = std::make_shared<Arena>(arguments...);
            fill(*arena);
            return [arena](std::size_t times) {
              Nanoseconds taken{};
              while (times-- != 0) {
                arena->clear();
                taken += timed([&] { fill(*arena); });
              }
              return taken;
            };
          }};
}

Workload refill(const char* name, const std::string& handle, const std::string& options) {
  return {name,
          handle + ", filled with 1,000,000 objects of 8 to 128 bytes after a clear",
          kNoGoal,
          kPieces,
          Threads::kOne,
          {refilling<EachFreed>("malloc"), refilling<Qkmem>("qkmem", "BLOCKMGMT " + options)}};
}

}  // namespace

std::vector<Workload> refill_workloads() {
  return {
      refill("refill_64k", "Block-managed handle, blocks of 64 KiB", "BLOCKSIZE=65536"),
      refill("refill_2k", "Block-managed handle, blocks of 2 KiB", "BLOCKSIZE=2048"),
      refill("refill_blockfree_64k", "BLOCKFREE handle, blocks of 64 KiB",
             "BLOCKFREE BLOCKSIZE=65536"),
      refill("refill_blockfree_2k", "BLOCKFREE handle, blocks of 2 KiB",
             "BLOCKFREE BLOCKSIZE=2048"),
  };
}

}  // namespace ratios
