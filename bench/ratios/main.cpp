// Measures one workload, runs one without measuring, or lists all. Output fields are tab-separated.
//
//   ratios                            name, title, number of operations and goal of each: a ratio,
//                                     a multiple and its peer, and what joins the two: "or",
//                                     "and" if both are needed, "above" if the ratio is added
//   ratios WORKLOAD                   contestant, nanoseconds, ratio and its quartiles
//   ratios WORKLOAD CONTESTANT TIMES  only runs it, to count its instructions
//   ratios --many                     contestant, number of pieces, nanoseconds to allocate and to
//                                     delete one of them
//   ratios --left                     megabytes that stay after 100,000 handles came and went
//   ratios --mtrace LIVE TIMES        nanoseconds, see bench/ratios/traces.cpp
//   ratios --peer NAME                serves a process that measures, see bench/ratios/profiles.h
//   ratios --build                    the compiler and the C library
//   ratios --peers                    name, package and version of the optional peers
#include <gnu/libc-version.h>
#include <malloc.h>
#include <sys/single_threaded.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "bench/ratios/left.h"
#include "bench/ratios/many.h"
#include "bench/ratios/mtraced.h"
#include "bench/ratios/profiles.h"
#include "bench/ratios/workloads.h"

#ifdef HAVE_TALLOC
#include <talloc.h>
#endif
#ifdef HAVE_APR
#include <apr_version.h>
#endif

namespace {

using namespace ratios;

template <class Named>
const Named& find(const std::vector<Named>& all, const char* name) {
  const auto found =
      std::find_if(all.begin(), all.end(), [&](auto& one) { return one.name == name; });
  if (found == all.end()) throw std::runtime_error(std::string("unknown: ") + name);
  return *found;
}

void list(const std::vector<Workload>& workloads) {
  for (const Workload& workload : workloads) {
    const Goal& goal = workload.goal;
    std::printf("%s\t%s\t%g\t%g\t%g\t%s\t%s\n", workload.name.c_str(), workload.title.c_str(),
                workload.operations, goal.ratio, goal.multiple, goal.peer, goal.join);
  }
}

/** Once a process had two threads, the C library's fast paths for one thread stay off. */
void check_threads(const Workload& workload) {
  const bool one = workload.threads == Threads::kOne;
  if (one != (__libc_single_threaded != 0)) throw std::runtime_error("wrong number of threads");
}

void print_standings(const Workload& workload) {
  const auto standings = measure(workload);
  check_threads(workload);
  for (const Standing& standing : standings) {
    std::printf("%s\t%.2f\t%.3f\t%.3f\t%.3f\n", standing.name.c_str(), standing.nanoseconds,
                standing.ratio.median, standing.ratio.low, standing.ratio.high);
  }
}

void print_build() {
#ifdef __clang__
  std::printf("%s\n", __VERSION__);
#else
  std::printf("g++ %s\n", __VERSION__);
#endif
  std::printf("glibc %s\n", gnu_get_libc_version());
}

void print_peers() {
  std::string talloc;
  std::string apr;
#ifdef HAVE_TALLOC
  talloc = std::to_string(talloc_version_major()) + "." + std::to_string(talloc_version_minor());
#endif
#ifdef HAVE_APR
  apr = apr_version_string();
#endif
  std::printf("talloc\tlibtalloc-dev\t%s\n", talloc.c_str());
  std::printf("APR pool\tlibapr1-dev\t%s\n", apr.c_str());
}

void print_many() {
  for (const ManyPieces& many : measure_many()) {
    std::printf("%s\t%zu\t%.2f\t%.2f\n", many.name, many.count, many.allocation, many.deletion);
  }
}

void print_left() { std::printf("%.2f\n", megabytes_left_by_handles()); }

void print_mtraced(const char* live, const char* times) {
  const Nanoseconds taken =
      time_mtraced(std::strtoul(live, nullptr, 10), std::strtoul(times, nullptr, 10));
  std::printf("%.0f\n", taken.count());
}

/**
 * Takes the free memory between allocations, for good. All that comes is then at the heap's end, and
 * a buffer grows there in the same way however many workloads the list has.
 */
void fill_holes() {
  constexpr std::size_t kLargest = 65536;  // below the sizes that get a mapping of their own
  constexpr std::size_t kSmallest = 16;
  for (std::size_t size = kLargest; size >= kSmallest;) {
    const std::size_t end = mallinfo2().keepcost;
    void* const memory = std::malloc(size);
    use(memory);
    if (mallinfo2().keepcost == end) continue;
    std::free(memory);
    size -= size > 1024 ? 1024 : 16;
  }
}

void run(int argc, char** argv) {
  const auto workloads = all_workloads();
  if (argc == 1) return list(workloads);
  if (std::strcmp(argv[1], "--build") == 0) return print_build();
  if (std::strcmp(argv[1], "--peers") == 0) return print_peers();
  if (std::strcmp(argv[1], "--many") == 0) return print_many();
  if (std::strcmp(argv[1], "--left") == 0) return print_left();
  if (std::strcmp(argv[1], "--mtrace") == 0 && argc == 4) return print_mtraced(argv[2], argv[3]);
  if (std::strcmp(argv[1], "--peer") == 0 && argc == 3) return serve_peer(argv[2]);
  const Workload& workload = find(workloads, argv[1]);
  fill_holes();
  if (argc == 4) {
    find(workload.contestants, argv[2]).start()(std::strtoul(argv[3], nullptr, 10));
    return;
  }
  print_standings(workload);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ratios: %s\n", error.what());
    return 1;
  }
}
