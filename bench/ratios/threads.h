// Pairs by several threads at once, on one allocator or on one for each.
#ifndef QKMEM_BENCH_RATIOS_THREADS_H_
#define QKMEM_BENCH_RATIOS_THREADS_H_

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

#include "bench/ratios/contest.h"
#include "bench/ratios/pairs.h"

namespace ratios {

/** One allocator for all threads, or one for each. */
enum class Ownership { kShared, kOwn };

/** On cache lines of its own, so that threads with an allocator each don't disturb one another. */
template <class Allocator>
struct alignas(128) Apart : Allocator {
  using Allocator::Allocator;
};

template <class Allocator>
using Allocators = std::vector<std::unique_ptr<Apart<Allocator>>>;

struct Span {
  std::chrono::steady_clock::time_point begin;
  std::chrono::steady_clock::time_point end;
};

/** From the first thread's begin to the last one's end. */
inline Nanoseconds whole(const std::vector<Span>& spans) {
  Span all = spans[0];
  for (const Span& span : spans) {
    all.begin = std::min(all.begin, span.begin);
    all.end = std::max(all.end, span.end);
  }
  return all.end - all.begin;
}

/** Each thread runs `times` pairs, all at once. */
template <class Allocator>
Nanoseconds in_threads(std::size_t threads, const Allocators<Allocator>& allocators,
                       std::size_t times) {
  using Clock = std::chrono::steady_clock;
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
Run pairs_in_threads(std::size_t threads, Ownership ownership, Arguments... arguments) {
  auto allocators = std::make_shared<Allocators<Allocator>>();
  const std::size_t count = ownership == Ownership::kOwn ? threads : 1;
  std::generate_n(std::back_inserter(*allocators), count,
                  [&] { return std::make_unique<Apart<Allocator>>(arguments...); });
  return
      [allocators, threads](std::size_t times) { return in_threads(threads, *allocators, times); };
}

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_THREADS_H_
