/* QK_MEM_CHECK=GUARD build/faults/overflow_byte */
#include <stdio.h>
#include <string.h>

#include "qkmem/qkmem.h"

static char* copy_of(int handle, const char* name) {
  char* copy = qk_mem_malloc(handle, strlen(name));
  for (size_t i = 0; i <= strlen(name); ++i) copy[i] = name[i];
  return copy;
}

int main(void) {
  int people = qk_mem_new_handle("", "PE");
  char* ada = copy_of(people, "Ada");
  puts(ada);
  qk_mem_free(people, ada);
  return 0;
}
