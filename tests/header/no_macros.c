/* A program that wants no macros calls the functions, and can have names of its own. */
#define QKMEM_NO_MACROS
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

#if defined(qk_mem_malloc) || defined(qk_mem_new_handle) || defined(qk_mem_arrfree)
#error "there are macros"
#endif

static void* qk_mem_malloc(int hid, size_t size) {
  return qk_mem_imalloc(hid, size, QK_MEM_ALIGNMENT, "no_macros.c", 1);
}

int main(void) {
  const int hid = qk_mem_inew_handle("", "NM", "no_macros.c", 2);
  void* memory = qk_mem_malloc(hid, 10);
  const int holds = memory != NULL && qk_mem_isize(hid, "no_macros.c", 3) == 10;
  qk_mem_idel_handle(hid, "no_macros.c", 4);
  return holds ? 0 : 1;
}
