// Stands for the shared library: it contains the library's code and is called as it is.

#include <cstdint>

#include "support/unwinder.h"

namespace {

[[gnu::noinline]] int capture(std::uintptr_t* frames, int most) {
  const int count = qk::capture_stack(frames, most);
  asm volatile("" : : "r"(frames) : "memory");
  return count;
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int capture_below_two_calls(std::uintptr_t* frames,
                                                                      int most) {
  qk::prepare_stacks(qk::load_unwinder());
  const int count = capture(frames, most);
  asm volatile("" : : "r"(frames) : "memory");
  return count;
}
