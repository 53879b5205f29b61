/* QK_MEM_CHECK=QUARANTINE build/faults/write_after_free */
#include "qkmem/qkmem.h"

struct Guest {
  struct Guest* next;
  int visits;
};

int main(void) {
  int guests = qk_mem_new_handle("", "GU");
  struct Guest* first = qk_mem_calloc(guests, 1, sizeof *first);
  struct Guest* last = first;
  qk_mem_free(guests, first);
  last->visits = 1;
  return 0;
}
