#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/ratios/allocators.h"
#include "bench/ratios/pairs.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

/** One allocator for all threads, or one for each. */
enum class Ownership { kShared, kOwn };

/** On cache lines of its own, so that threads with an allocator each don't disturb one another. */
template <class Allocator>
struct alignas(128) Apart : Allocator {
  using Allocator::Allocator;
};

template <class Allocator>
using Allocators = std::vector<std::unique_ptr<Apart<Allocator>>>;

using Clock = std::chrono::steady_clock;

struct Span {
  Clock::time_point begin;
  Clock::time_point end;
};

/** From the first thread's begin to the last one's end. */
Nanoseconds whole(const std::vector<Span>& spans) {
  Clock::time_point begin = spans[0].begin;
  Clock::time_point end = spans[0].end;
  for (const Span& span : spans) {
    begin = std::min(begin, span.begin);
    end = std::max(end, span.end);
  }
  return end - begin;
}

/** Each thread runs `times` pairs, all at once. */
template <class Allocator>
Nanoseconds in_threads(std::size_t threads, const Allocators<Allocator>& allocators,
                       std::size_t times) {
  std::barrier<> start(static_cast<std::ptrdiff_t>(threads));
  std::vector<Span> spans(threads);
  std::vector<std::thread> running;
  for (std::size_t i = 0; i < threads; ++i) {
    running.emplace_back(
        [&start, &span = spans[i], &allocator = *allocators[i % allocators.size()], times] {
          start.arrive_and_wait();
          const Clock::time_point begin = Clock::now();
          allocate_and_release<1>(allocator, mixed_sizes(), times);
          span = {begin, Clock::now()};
        });
  }
  for (std::thread& thread : running) thread.join();
  return whole(spans);
}

template <class Allocator, class... Arguments>
Contestant threaded(const char* name, std::size_t threads, Ownership ownership,
                    Arguments... arguments) {
  return {name, [=]() -> Run {
            auto allocators = std::make_shared<Allocators<Allocator>>();
            const std::size_t count = ownership == Ownership::kOwn ? threads : 1;
            std::generate_n(std::back_inserter(*allocators), count,
                            [&] { return std::make_unique<Apart<Allocator>>(arguments...); });
            return [allocators, threads](std::size_t times) {
              return in_threads(threads, *allocators, times);
            };
          }};
}

Workload threaded_pairs(const char* name, const char* title, std::size_t threads,
                        Ownership ownership, Goal goal) {
  return {name,
          title,
          goal,
          1,
          Threads::kSeveral,
          {threaded<Malloc>("malloc", threads, ownership),
           threaded<Qkmem>("qkmem", threads, ownership, "MULTITHREADED"),
#ifdef HAVE_TALLOC
           threaded<LockedTalloc>("locked talloc", threads, ownership),
#endif
           threaded<HashTable>("hash table", threads, ownership)}};
}

}  // namespace

std::vector<Workload> thread_workloads() {
  const Goal goal = Goal(16).and_below("locked talloc");
  return {
      threaded_pairs("one_thread", "MULTITHREADED handle: pairs by one thread, elapsed", 1,
                     Ownership::kShared, kNoGoal),
      threaded_pairs("two_threads", "MULTITHREADED handle: pairs by two threads at once, elapsed",
                     2, Ownership::kShared, goal),
      threaded_pairs("four_threads", "MULTITHREADED handle: pairs by four threads at once, elapsed",
                     4, Ownership::kShared, goal),
      threaded_pairs("two_threads_own",
                     "A MULTITHREADED handle for each of two threads: pairs at once, elapsed", 2,
                     Ownership::kOwn, kNoGoal),
      threaded_pairs("four_threads_own",
                     "A MULTITHREADED handle for each of four threads: pairs at once, elapsed", 4,
                     Ownership::kOwn, kNoGoal)};
}

}  // namespace ratios
