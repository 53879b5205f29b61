/* QK_MEM_PROFILE=SITES build/faults/forgotten_handle */
#include "qkmem/qkmem.h"

static void serve(int request) {
  int handle = qk_mem_new_handle("BLOCKMGMT", "RE");
  char* answer = qk_mem_malloc(handle, 100);
  if (request == 2) return;
  answer[0] = '\0';
  qk_mem_del_handle(handle);
}

int main(void) {
  for (int request = 0; request < 5; ++request) serve(request);
  return 0;
}
