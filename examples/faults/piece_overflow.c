/* QK_MEM_CHECK=GUARD build/faults/piece_overflow */
#include <stdio.h>

#include "qkmem/qkmem.h"

static void copy(char* to, const char* text) {
  do {
    *to++ = *text;
  } while (*text++ != '\0');
}

int main(void) {
  int request = qk_mem_new_handle("BLOCKMGMT", "RQ");
  char* method = qk_mem_malloc(request, 4);
  char* path = qk_mem_malloc(request, 16);
  copy(path, "/index");
  copy(method, "DELETE");
  printf("%s %s\n", method, path);
  qk_mem_clear_handle(request);
  return 0;
}
