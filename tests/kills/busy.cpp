// A program that is busy in the library and in the allocator until it is killed.
// usage: busy THREADS BYTES ALTERNATE_STACK FRAMES
//   BYTES            of each block
//   ALTERNATE_STACK  bytes of each thread's alternate signal stack, 0 for none
//   FRAMES           1 to register unwinding tables, as compilers at run time do
// It writes a byte to standard output when it has started.
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "qkmem/qkmem.h"

extern "C" void __register_frame(void* table);

namespace {

/** The table of one function. Registered tables make an unwinder allocate when it looks at them. */
void register_frames() {
  static struct [[gnu::packed]] {
    std::uint32_t common_size = 20;
    std::uint32_t common_id = 0;
    unsigned char common[16] = {1, 0, 1, 0x78, 16, 0x0c, 7, 8, 0x90, 1};
    std::uint32_t size = 28;
    std::uint32_t to_common = 28;
    std::uint64_t begin = 0;
    std::uint64_t length = 1;
    unsigned char instructions[8] = {};
    std::uint32_t end = 0;
  } table;
  static unsigned char function[1];
  table.begin = reinterpret_cast<std::uintptr_t>(function);
  __register_frame(&table);
}

void use_alternate_stack(std::size_t size) {
  if (size == 0) return;
  stack_t stack = {};
  stack.ss_sp = std::malloc(size);
  stack.ss_size = size;
  if (sigaltstack(&stack, nullptr) != 0) std::abort();
}

[[noreturn]] void stay_busy(int shared, std::size_t bytes, std::size_t alternate_stack) {
  use_alternate_stack(alternate_stack);
  for (;;) {
    void* block = qk_mem_malloc(shared, bytes);
    const int own = qk_mem_new_handle("AUTOFREE", "OW");
    void* piece = qk_mem_calloc(own, 3, bytes / 3);
    piece = qk_mem_realloc(own, piece, 2 * bytes);
    for (int i = 0; i < 5; ++i) {
      void* volatile memory = std::malloc(bytes + 100);
      std::free(memory);
    }
    qk_mem_del_handle(own);
    qk_mem_free(shared, nullptr);  // a line in the log
    qk_mem_free(shared, block);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 5) return 2;
  const int threads = std::atoi(arguments[1]);
  const auto bytes = static_cast<std::size_t>(std::atol(arguments[2]));
  const auto alternate_stack = static_cast<std::size_t>(std::atol(arguments[3]));
  if (std::atoi(arguments[4]) != 0) register_frames();
  const int shared = qk_mem_new_handle("MULTITHREADED", "SH");
  for (int i = 1; i < threads; ++i) std::thread(stay_busy, shared, bytes, alternate_stack).detach();
  if (write(STDOUT_FILENO, "!", 1) != 1) return 1;
  stay_busy(shared, bytes, alternate_stack);
}
