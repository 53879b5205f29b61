// A library that is loaded and unloaded while the program runs, and that uses the shared library.
#include "qkmem/qkmem.h"

namespace {

int handle = 0;

/** Allocates when the library is loaded and frees when it is unloaded. */
struct Static {
  Static() : memory(qk_mem_malloc(QK_MEM_DATA_HANDLE, 10)) {}
  ~Static() { qk_mem_free(QK_MEM_DATA_HANDLE, memory); }
  void* memory;
} early;

}  // namespace

extern "C" [[gnu::visibility("default")]] int use_plugin() {
  handle = qk_mem_new_handle("MULTITHREADED", "PL");
  static_cast<void>(qk_mem_malloc(handle, 10));
  return handle;
}
