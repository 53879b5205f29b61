/* QK_MEM_CHECK=GUARD build/faults/double_free_reused */
#include "qkmem/qkmem.h"

int main(void) {
  int tickets = qk_mem_new_handle("", "TI");
  char* first = qk_mem_strdup(tickets, "seat 1");
  char* copy = first;
  qk_mem_free(tickets, first);
  char* second = qk_mem_strdup(tickets, "seat 2");
  qk_mem_free(tickets, copy);
  qk_mem_free(tickets, second);
  return 0;
}
