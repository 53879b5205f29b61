// A program that a tracer stops at a breakpoint, takes through the calls below instruction by
// instruction, and ends at one of them.
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <thread>

#include "qkmem/qkmem.h"

namespace {

void* volatile block;

/** Takes and releases the lock of a handle, around the allocator. */
void call_the_library(int handle) {
  block = qk_mem_malloc(handle, 100);
  qk_mem_free(handle, block);
}

/** From the thread's cache, from the heap, and in pages of its own. */
void call_the_allocator() {
  constexpr std::size_t kSizes[] = {100, 5000, 1000000};
  for (const std::size_t size : kSizes) {
    block = std::malloc(size);
    std::free(block);
  }
}

/** A breakpoint is passed if there is no tracer any more. */
void pass(int /*signal_number*/) {}

[[gnu::always_inline]] inline void reach_breakpoint() {
#ifdef __x86_64__
  asm volatile("int3");
#else
  raise(SIGTRAP);
#endif
}

}  // namespace

int main(int count, char** arguments) {
  signal(SIGTRAP, pass);
  // Without a second thread the allocator and the library take no locks.
  std::thread([] {
    for (;;) pause();
  }).detach();
  const int handle = qk_mem_new_handle("MULTITHREADED", "ST");
  const bool is_library = count > 1 && *arguments[1] == 'l';
  // The first round finds the functions, and the second one is stepped through.
  for (int round = 0; round < 2; ++round) {
    if (round == 1) reach_breakpoint();
    if (is_library) {
      call_the_library(handle);
    } else {
      call_the_allocator();
    }
  }
  reach_breakpoint();
  for (;;) pause();
}
