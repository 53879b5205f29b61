#include "bench/ratios/threads.h"

#include <string>

#include "bench/ratios/allocators.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

template <class Allocator, class... Arguments>
Contestant threaded(const char* name, std::size_t threads, Ownership ownership,
                    Arguments... arguments) {
  return {name, [=] { return pairs_in_threads<Allocator>(threads, ownership, arguments...); }};
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
