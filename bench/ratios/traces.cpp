#include <mcheck.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/ratios/allocators.h"
#include "bench/ratios/mtraced.h"
#include "bench/ratios/population.h"
#include "bench/ratios/scratch.h"
#include "bench/ratios/sizes.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

constexpr std::size_t kSizes = 1024;

template <class Allocator>
Nanoseconds pairs(Allocator& allocator, std::size_t times) {
  static const auto sizes = sizes_between<kSizes>(16, 512);
  return timed([&] {
    for (std::size_t i = 0; i < times; ++i) {
      void* memory = allocator.allocate(sizes[i % kSizes]);
      use(memory);
      allocator.release(memory);
    }
  });
}

/** One of `live` pieces is replaced by another, or without any, a piece comes and goes. */
template <class Allocator, class... Arguments>
Run pairs_beside(std::size_t live, Arguments... arguments) {
  if (live == 0) {
    auto allocator = std::make_shared<Allocator>(arguments...);
    return [allocator](std::size_t times) { return pairs(*allocator, times); };
  }
  // Never deleted, because the process ends after the workload.
  auto* population = new Population<Allocator>(live, arguments...);
  return [population](std::size_t times) {
    return timed([&] {
      while (times-- != 0) population->replace_one();
    });
  };
}

Run with_trace_file(std::size_t live) {
  auto folder = std::make_shared<ScratchFolder>();
  setenv("QK_MEM_DEBUG", "TRACE LOG=NONE", 1);  // read at the first call, which creates the handle
  setenv("QK_MEM_OPTIONS", ("DB=" + folder->file("trace.tdf")).c_str(), 1);
  return
      [folder, run = pairs_beside<Qkmem>(live, "DATA")](std::size_t times) { return run(times); };
}

/**
 * In processes of its own: a preloaded library is in front of malloc and mallinfo() then, also for
 * the other contestants.
 */
Run with_mtrace(std::size_t live) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  return [=](std::size_t times) {
    const std::string command = "LD_PRELOAD=libc_malloc_debug.so.0 '" + program + "' --mtrace " +
                                std::to_string(live) + " " + std::to_string(times);
    FILE* output = popen(command.c_str(), "r");
    double nanoseconds = 0;
    if (output == nullptr || std::fscanf(output, "%lf", &nanoseconds) != 1 || pclose(output) != 0) {
      throw std::runtime_error("can't measure mtrace");
    }
    return Nanoseconds(nanoseconds);
  };
}

Workload traced(const char* name, std::size_t live, const char* what, Goal goal) {
  return {name,
          std::string("Ordinary handle with the trace file open: ") + what,
          goal,
          1,
          Threads::kOne,
          {{"malloc", [=] { return pairs_beside<Malloc>(live); }},
           {"qkmem", [=] { return with_trace_file(live); }},
           {"mtrace", [=] { return with_mtrace(live); }}}};
}

}  // namespace

Nanoseconds time_mtraced(std::size_t live, std::size_t times) {
  const ScratchFolder folder;
  const Run run = pairs_beside<Malloc>(live);
  setenv("MALLOC_TRACE", folder.file("mtrace").c_str(), 1);
  mtrace();
  const Nanoseconds taken = run(times);
  muntrace();
  return taken;
}

std::vector<Workload> trace_workloads() {
  return {traced("traced", 0, "recorded pairs of 16 to 512 bytes", 40),
          traced("traced_10000", 10000, "one of 10,000 live pointers replaced", 20)};
}

}  // namespace ratios
