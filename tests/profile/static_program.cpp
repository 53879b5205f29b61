// A program without shared libraries, that allocates before main() begins.
#include "qkmem/qkmem.h"

namespace {

[[gnu::noinline]] void* take(int size) {
  void* volatile memory = qk_mem_malloc(QK_MEM_DATA_HANDLE, static_cast<std::size_t>(size));
  return memory;
}

[[gnu::noinline]] void forget_a_block() {
  void* volatile memory = take(1000);
  static_cast<void>(memory);
}

[[gnu::constructor(101)]] void allocate_early() {
  void* volatile memory = take(10);
  static_cast<void>(memory);
}

}  // namespace

int main() { forget_a_block(); }
