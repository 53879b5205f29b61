#include <array>
#include <barrier>
#include <memory>
#include <string>
#include <thread>

#include "bench/ratios/allocators.h"
#include "bench/ratios/sizes.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

constexpr std::size_t kSizes = 1024;

const std::array<std::size_t, kSizes>& mixed_sizes() {
  static const auto sizes = sizes_between<kSizes>(16, 512);
  return sizes;
}

const std::array<std::size_t, kSizes>& sizes_of_64() {
  static const auto sizes = sizes_between<kSizes>(64, 64);
  return sizes;
}

using Sizes = const std::array<std::size_t, kSizes>&;

/** Allocates `kDepth` pieces and releases them, the oldest first, `times` times. */
template <std::size_t kDepth, class Allocator>
void allocate_and_release(Allocator& allocator, Sizes sizes, std::size_t times) {
  std::array<void*, kDepth> live;
  std::size_t next = 0;
  while (times-- != 0) {
    for (void*& memory : live) use(memory = allocator.allocate(sizes[next++ % kSizes]));
    for (void* memory : live) allocator.release(memory);
  }
}

template <std::size_t kDepth, class Allocator, class... Arguments>
Contestant in_one_thread(const char* name, Sizes sizes, Arguments... arguments) {
  return {name, [=, &sizes]() -> Run {
            return
                [allocator = std::make_shared<Allocator>(arguments...), &sizes](std::size_t times) {
                  return timed([&] { allocate_and_release<kDepth>(*allocator, sizes, times); });
                };
          }};
}

/** A thread that sleeps during the lifetime of this object. */
class IdleThread {
 public:
  IdleThread() : thread_([this] { (void)end_.arrive_and_wait(); }) {}
  ~IdleThread() {
    end_.arrive_and_wait();
    thread_.join();
  }
  IdleThread(const IdleThread&) = delete;
  IdleThread& operator=(const IdleThread&) = delete;

 private:
  std::barrier<> end_{2};
  std::thread thread_;
};

/** Same as in_one_thread(), in a process with another thread. */
template <class Allocator, class... Arguments>
Contestant beside_idle_thread(const char* name, Arguments... arguments) {
  const Contestant alone = in_one_thread<1, Allocator>(name, mixed_sizes(), arguments...);
  return {name, [=]() -> Run {
            return [idle = std::make_shared<IdleThread>(), run = alone.start()](std::size_t times) {
              return run(times);
            };
          }};
}

/** Two threads each run `times` pairs. Returns the time until both have finished. */
template <class Allocator>
Nanoseconds allocate_and_release_in_two(Allocator& allocator, std::size_t times) {
  std::barrier<> start(3);
  const auto work = [&] {
    start.arrive_and_wait();
    allocate_and_release<1>(allocator, mixed_sizes(), times);
  };
  std::thread first(work);
  std::thread second(work);
  start.arrive_and_wait();
  return elapsed([&] {
    first.join();
    second.join();
  });
}

template <class Allocator, class... Arguments>
Contestant in_two_threads(const char* name, Arguments... arguments) {
  return {name, [=]() -> Run {
            return [allocator = std::make_shared<Allocator>(arguments...)](std::size_t times) {
              return allocate_and_release_in_two(*allocator, times);
            };
          }};
}

Workload unrecorded() {
  return {"data_handle",
          "Data handle with nothing configured: a pair of 64 bytes",
          1.10,
          1,
          Threads::kOne,
          {in_one_thread<1, Malloc>("malloc", sizes_of_64()),
           in_one_thread<1, Qkmem>("qkmem", sizes_of_64(), nullptr),
           in_one_thread<1, EmptyCall>("empty call", sizes_of_64())}};
}

template <std::size_t kDepth>
Workload recorded(const char* name, const char* title, double reach) {
  return {name,
          title,
          reach,
          kDepth,
          Threads::kOne,
          {in_one_thread<kDepth, Malloc>("malloc", mixed_sizes()),
           in_one_thread<kDepth, Qkmem>("qkmem", mixed_sizes(), "DATA"),
#ifdef HAVE_TALLOC
           in_one_thread<kDepth, Talloc>("talloc", mixed_sizes()),
#endif
           in_one_thread<kDepth, HashTable>("hash table", mixed_sizes())}};
}

Workload multithreaded_alone() {
  return {"multithreaded",
          "MULTITHREADED handle: pairs one at a time, one thread in the process",
          2.8,
          1,
          Threads::kOne,
          {in_one_thread<1, Malloc>("malloc", mixed_sizes()),
           in_one_thread<1, Qkmem>("qkmem", mixed_sizes(), "MULTITHREADED"),
#ifdef HAVE_TALLOC
           in_one_thread<1, LockedTalloc>("locked talloc", mixed_sizes()),
#endif
           in_one_thread<1, HashTable>("hash table", mixed_sizes())}};
}

Workload multithreaded_beside_idle_thread() {
  return {
      "multithreaded_idle",
      "MULTITHREADED handle: pairs one at a time, beside an idle thread",
      4.5,
      1,
      Threads::kIdleSecond,
      {beside_idle_thread<Malloc>("malloc"), beside_idle_thread<Qkmem>("qkmem", "MULTITHREADED"),
#ifdef HAVE_TALLOC
       beside_idle_thread<LockedTalloc>("locked talloc"),
#endif
       beside_idle_thread<HashTable>("hash table")}};
}

Workload two_threads() {
  return {"two_threads",
          "MULTITHREADED handle: pairs by two threads at once, elapsed",
          25,
          1,
          Threads::kTwo,
          {in_two_threads<Malloc>("malloc"), in_two_threads<Qkmem>("qkmem", "MULTITHREADED"),
#ifdef HAVE_TALLOC
           in_two_threads<LockedTalloc>("locked talloc"),
#endif
           in_two_threads<HashTable>("hash table")}};
}

}  // namespace

std::vector<Workload> pair_workloads() {
  return {
      unrecorded(),
      recorded<1>("pair", "Ordinary handle: recorded pairs of 16 to 512 bytes, one at a time", 2.0),
      recorded<16>("pairs_16",
                   "Ordinary handle: 16 pieces allocated, then released in the same order", 2.5),
      multithreaded_alone(),
      multithreaded_beside_idle_thread(),
      two_threads()};
}

}  // namespace ratios
