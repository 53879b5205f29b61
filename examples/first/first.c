#include <stdio.h>

#include "qkmem/qkmem.h"

int main(void) {
  int people = qk_mem_new_handle("DATA", "PE");
  char* first = qk_mem_strdup(people, "Ada");
  char* second = qk_mem_strdup(people, "Grace");
  int* years = qk_mem_calloc(people, 2, sizeof(int));
  printf("%s and %s: %zu bytes\n", first, second, qk_mem_size(people));
  years = qk_mem_realloc(people, years, 3 * sizeof(int));
  qk_mem_free(people, first);
  qk_mem_free(people, NULL);
  return years == NULL;
}
