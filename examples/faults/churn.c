/* QK_MEM_PROFILE=SITES build/faults/churn */
#include <stdio.h>

#include "qkmem/qkmem.h"

static int digits_of(int handle, int number) {
  char* text = qk_mem_malloc(handle, 20);
  int digits = snprintf(text, 20, "%d", number);
  qk_mem_free(handle, text);
  return digits;
}

int main(void) {
  int handle = qk_mem_new_handle("", "NU");
  int digits = 0;
  for (int number = 0; number < 1000; ++number) digits += digits_of(handle, number);
  printf("%d digits\n", digits);
  return 0;
}
