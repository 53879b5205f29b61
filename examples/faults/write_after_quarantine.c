/* QK_MEM_CHECK=QUARANTINE=1K build/faults/write_after_quarantine */
#include <stdio.h>

#include "qkmem/qkmem.h"

int main(void) {
  int requests = qk_mem_new_handle("", "RE");
  char* state = qk_mem_malloc(requests, 40);
  qk_mem_free(requests, state);
  state[8] = 'x';
  for (int i = 0; i < 100; ++i) qk_mem_free(requests, qk_mem_malloc(requests, 100));
  puts("served");
  return 0;
}
