/* QK_MEM_CHECK="GUARD QUARANTINE=0" build/faults/stale_write */
#include "qkmem/qkmem.h"

int main(void) {
  int requests = qk_mem_new_handle("", "RE");
  char* old = qk_mem_malloc(requests, 40);
  qk_mem_free(requests, old);
  /* The same memory, for less: behind it is a guard where the old block was. */
  char* answer = qk_mem_malloc(requests, 30);
  old[36] = 'x';
  qk_mem_free(requests, answer);
  return 0;
}
