/* QK_MEM_PROFILE=PEAK build/faults/peak */
#include <string.h>

#include "qkmem/qkmem.h"

int main(void) {
  int mail = qk_mem_new_handle("", "MA");
  char* letters[100];
  for (int i = 0; i < 100; ++i) letters[i] = qk_mem_strdup(mail, "Dear Ada, ...");
  char* bag = qk_mem_calloc(mail, 100, 1000);
  for (int i = 0; i < 100; ++i) strcat(bag, letters[i]);
  qk_mem_free(mail, bag);
  for (int i = 0; i < 100; ++i) qk_mem_free(mail, letters[i]);
  return 0;
}
