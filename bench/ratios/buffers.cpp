#include <memory>
#include <string>

#include "bench/ratios/allocators.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

constexpr std::size_t kStart = 16;

std::size_t doubled(std::size_t size) { return 2 * size; }
std::size_t longer_by_16(std::size_t size) { return size + 16; }

template <std::size_t kNext(std::size_t), class Allocator>
void grow_and_release(Allocator& allocator, std::size_t end) {
  void* buffer = allocator.allocate(kStart);
  use(buffer);
  for (std::size_t size = kNext(kStart); size <= end; size = kNext(size)) {
    use(buffer = allocator.resize(buffer, size));
  }
  allocator.release(buffer);
}

template <std::size_t kNext(std::size_t), class Allocator, class... Arguments>
Contestant growing(const char* name, std::size_t end, Arguments... arguments) {
  return {name, [=]() -> Run {
            return [allocator = std::make_shared<Allocator>(arguments...), end](std::size_t times) {
              return timed([&] {
                while (times-- != 0) grow_and_release<kNext>(*allocator, end);
              });
            };
          }};
}

template <std::size_t kNext(std::size_t)>
Workload grown(const char* name, const char* title, std::size_t end, double steps, Goal goal) {
  return {name,
          title,
          goal,
          steps,
          Threads::kOne,
          {growing<kNext, Malloc>("malloc", end), growing<kNext, Qkmem>("qkmem", end, "DATA"),
#ifdef HAVE_TALLOC
           growing<kNext, Talloc>("talloc", end),
#endif
           growing<kNext, HashTable>("hash table", end)}};
}

}  // namespace

std::vector<Workload> buffer_workloads() {
  return {grown<doubled>("realloc_doubling",
                         "Ordinary handle: a buffer doubled by realloc from 16 bytes to 16 KiB",
                         std::size_t{16} << 10, 11, 2.4),
          grown<longer_by_16>("realloc_by_16",
                              "Ordinary handle: a buffer grown by realloc from 16 bytes to 4 KiB, "
                              "16 at a time",
                              std::size_t{4} << 10, 256, 2.2)};
}

}  // namespace ratios
