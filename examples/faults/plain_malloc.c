/* QK_MEM_PROFILE=SITES build/faults/plain_malloc */
#include <stdlib.h>

#include "qkmem/qkmem.h"

int main(void) {
  int numbers = qk_mem_new_handle("", "NU");
  int* mine = qk_mem_malloc(numbers, 10 * sizeof *mine);
  int* other = malloc(10 * sizeof *other);
  qk_mem_free(numbers, mine);
  qk_mem_free(numbers, other);
  return 0;
}
