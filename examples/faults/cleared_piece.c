/* QK_MEM_PROFILE=SITES build/faults/cleared_piece */
#include "qkmem/qkmem.h"

int main(void) {
  int handle = qk_mem_new_handle("BLOCKMGMT BLOCKFREE", "RE");
  char* best = NULL;
  for (int request = 0; request < 3; ++request) {
    char* answer = qk_mem_strdup(handle, "42");
    if (request == 1) best = answer;
    qk_mem_clear_handle(handle);
  }
  qk_mem_free(handle, best);
  return 0;
}
