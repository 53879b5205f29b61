// A program that is busy in every thread, in the library and in the system's allocator, until
// it is killed. It writes a byte to standard output when it has started.
#include <unistd.h>

#include <string>
#include <thread>

#include "qkmem/qkmem.h"

namespace {

[[noreturn]] void stay_busy(int shared) {
  for (;;) {
    void* block = qk_mem_malloc(shared, 100);
    const int own = qk_mem_new_handle("AUTOFREE", "OW");
    void* piece = qk_mem_calloc(own, 3, 50);
    const std::string text(200, 'x');
    piece = qk_mem_realloc(own, piece, text.size());
    qk_mem_del_handle(own);
    qk_mem_free(shared, nullptr);  // a line in the log
    qk_mem_free(shared, block);
  }
}

}  // namespace

int main() {
  const int shared = qk_mem_new_handle("MULTITHREADED", "SH");
  for (int i = 0; i < 3; ++i) std::thread(stay_busy, shared).detach();
  if (write(STDOUT_FILENO, "!", 1) != 1) return 1;
  stay_busy(shared);
}
