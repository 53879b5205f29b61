/* QK_MEM_PROFILE=SITES build/faults/error_path */
#include <stdlib.h>
#include <string.h>

#include "qkmem/qkmem.h"

static int price_of(int shop, const char* order) {
  char* copy = qk_mem_strdup(shop, order);
  char* number = strchr(copy, ' ');
  if (number == NULL) return -1;
  int price = atoi(number);
  qk_mem_free(shop, copy);
  return price;
}

int main(void) {
  int shop = qk_mem_new_handle("", "SH");
  for (int i = 0; i < 100; ++i) price_of(shop, i % 10 == 0 ? "tea" : "tea 3");
  return 0;
}
