// A library of the program, which is left after the program.
#include <cstdio>
#include <cstdlib>

#ifdef LEFT_LIBRARY_ALLOCATES
#include "qkmem/qkmem.h"
#endif

namespace {

struct Static {
#ifdef LEFT_LIBRARY_ALLOCATES
  Static() { qk_mem_free(QK_MEM_DATA_HANDLE, qk_mem_malloc(QK_MEM_DATA_HANDLE, 1)); }
#else
  Static() {}
#endif
  ~Static() { std::printf("library "); }
};

const Static object;

[[gnu::destructor(101)]] void leave_last() { std::printf("library-last "); }

/** Registered before the program starts, and so called last of all. */
[[gnu::constructor]] void begin() {
  on_exit([](int status, void* /*unused*/) { std::printf("status-%d ", status & 0xff); }, nullptr);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] void need_library() {}
