#include "bench/ratios/pairs.h"

#include <barrier>
#include <memory>
#include <string>
#include <thread>

#include "bench/ratios/allocators.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

const PairSizes& sizes_of_64() {
  static const auto sizes = sizes_between<kPairSizes>(64, 64);
  return sizes;
}

template <std::size_t kDepth, class Allocator, class... Arguments>
Contestant in_one_thread(const char* name, const PairSizes& sizes, Arguments... arguments) {
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
template <std::size_t kDepth, class Allocator, class... Arguments>
Contestant beside_idle_thread(const char* name, Arguments... arguments) {
  const Contestant alone = in_one_thread<kDepth, Allocator>(name, mixed_sizes(), arguments...);
  return {name, [=]() -> Run {
            return [idle = std::make_shared<IdleThread>(), run = alone.start()](std::size_t times) {
              return run(times);
            };
          }};
}

Workload unrecorded() {
  return {"data_handle",
          "Data handle with nothing configured: a pair of 64 bytes",
          kNoGoal.or_times(1.08, "empty call"),
          1,
          Threads::kOne,
          {in_one_thread<1, Malloc>("malloc", sizes_of_64()),
           in_one_thread<1, Qkmem>("qkmem", sizes_of_64(), nullptr),
           in_one_thread<1, EmptyCall>("empty call", sizes_of_64())}};
}

template <std::size_t kDepth>
Workload recorded(const char* name, const char* title, Goal goal) {
  return {name,
          title,
          goal,
          kDepth,
          Threads::kOne,
          {in_one_thread<kDepth, Malloc>("malloc", mixed_sizes()),
           in_one_thread<kDepth, Qkmem>("qkmem", mixed_sizes(), "DATA"),
#ifdef HAVE_TALLOC
           in_one_thread<kDepth, Talloc>("talloc", mixed_sizes()),
#endif
           in_one_thread<kDepth, HashTable>("hash table", mixed_sizes())}};
}

template <std::size_t kDepth>
Workload multithreaded_alone(const char* name, const char* title, Goal goal) {
  return {name,
          title,
          goal,
          kDepth,
          Threads::kOne,
          {in_one_thread<kDepth, Malloc>("malloc", mixed_sizes()),
           in_one_thread<kDepth, Qkmem>("qkmem", mixed_sizes(), "MULTITHREADED"),
#ifdef HAVE_TALLOC
           in_one_thread<kDepth, LockedTalloc>("locked talloc", mixed_sizes()),
#endif
           in_one_thread<kDepth, HashTable>("hash table", mixed_sizes())}};
}

template <std::size_t kDepth>
Workload multithreaded_beside_idle_thread(const char* name, const char* title, Goal goal) {
  return {name,
          title,
          goal,
          kDepth,
          Threads::kIdleSecond,
          {beside_idle_thread<kDepth, Malloc>("malloc"),
           beside_idle_thread<kDepth, Qkmem>("qkmem", "MULTITHREADED"),
#ifdef HAVE_TALLOC
           beside_idle_thread<kDepth, LockedTalloc>("locked talloc"),
#endif
           beside_idle_thread<kDepth, HashTable>("hash table")}};
}

}  // namespace

std::vector<Workload> pair_workloads() {
  return {
      unrecorded(),
      recorded<1>("pair", "Ordinary handle: recorded pairs of 16 to 512 bytes, one at a time",
                  Goal(2.2).or_times(1.05, "talloc")),
      recorded<16>("pairs_16",
                   "Ordinary handle: 16 pieces allocated, then released in the same order", 2.5),
      multithreaded_alone<1>("multithreaded",
                             "MULTITHREADED handle: pairs one at a time, one thread ever", 2.8),
      multithreaded_alone<16>(
          "multithreaded_16",
          "MULTITHREADED handle: 16 pieces allocated, then released, one thread ever", 3.3),
      multithreaded_beside_idle_thread<1>(
          "multithreaded_idle", "MULTITHREADED handle: pairs one at a time, beside an idle thread",
          4.0),
      multithreaded_beside_idle_thread<16>(
          "multithreaded_idle_16",
          "MULTITHREADED handle: 16 pieces allocated, then released, beside an idle thread",
          kNoGoal)};
}

}  // namespace ratios
