#include <mcheck.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "bench/ratios/allocators.h"
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

/** The trace of the C library. */
Run with_mtrace() {
  auto folder = std::make_shared<ScratchFolder>();
  setenv("MALLOC_TRACE", folder->file("mtrace").c_str(), 1);
  return [folder](std::size_t times) {
    Malloc allocator;
    mtrace();
    const Nanoseconds taken = pairs(allocator, times);
    muntrace();
    return taken;
  };
}

Run with_trace_file() {
  auto folder = std::make_shared<ScratchFolder>();
  setenv("QK_MEM_DEBUG", "TRACE LOG=NONE", 1);  // read at the first call, which creates the handle
  setenv("QK_MEM_OPTIONS", ("DB=" + folder->file("trace.tdf")).c_str(), 1);
  return [folder, allocator = std::make_shared<Qkmem>("DATA")](std::size_t times) {
    return pairs(*allocator, times);
  };
}

}  // namespace

std::vector<Workload> trace_workloads() {
  return {{"traced",
           "Ordinary handle with the trace file open: recorded pairs of 16 to 512 bytes",
           1.0,
           1,
           Threads::kOne,
           {{"mtrace", with_mtrace}, {"qkmem", with_trace_file}},
           "libc_malloc_debug.so.0"}};
}

}  // namespace ratios
