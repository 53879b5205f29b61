/* QK_MEM_CHECK=FILL build/faults/cleared_write */
#include <stdio.h>

#include "qkmem/qkmem.h"

int main(void) {
  int request = qk_mem_new_handle("BLOCKMGMT", "RQ");
  int* count = NULL;
  for (int i = 0; i < 3; ++i) {
    if (count == NULL) count = qk_mem_calloc(request, 1, sizeof *count);
    ++*count;
    qk_mem_clear_handle(request);
  }
  puts("counted");
  return 0;
}
