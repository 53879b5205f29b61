/* QK_MEM_PROFILE=SITES build/faults/leak */
#include <stdio.h>

#include "qkmem/qkmem.h"

int main(void) {
  int people = qk_mem_new_handle("", "PE");
  char* first = qk_mem_strdup(people, "Ada");
  char* second = qk_mem_strdup(people, "Grace");
  printf("%s and %s\n", first, second);
  qk_mem_free(people, first);
  return 0;
}
