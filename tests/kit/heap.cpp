#include "tests/kit/heap.h"

#include <dlfcn.h>

#include <atomic>
#include <optional>

namespace {

std::optional<struct mallinfo> statistics;
std::atomic<int> probes = 0;

}  // namespace

// Replaces the C library's function of this name, and a sanitizer's.
extern "C" struct mallinfo mallinfo() noexcept {
  ++probes;
  if (!statistics) {
    using Statistics = struct mallinfo (*)();
    static const auto real = reinterpret_cast<Statistics>(dlsym(RTLD_NEXT, "mallinfo"));
    return real();
  }
  return *statistics;
}

namespace kit {

void set_heap(int bytes) {
  struct mallinfo figures = {};
  figures.arena = bytes;
  set_heap_statistics(figures);
}

void set_heap_statistics(const struct mallinfo& figures) {
  statistics = figures;
  probes = 0;
}

int heap_probes() { return probes; }

}  // namespace kit
