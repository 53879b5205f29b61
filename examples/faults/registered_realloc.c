/* QK_MEM_PROFILE=SITES build/faults/registered_realloc */
#include <stdlib.h>

#include "qkmem/qkmem.h"

int main(void) {
  int texts = qk_mem_new_handle("", "TX");
  char* text = malloc(100);
  qk_mem_register(texts, QK_MEM_EXTERNAL, text, 100);
  text = qk_mem_realloc(texts, text, 200);
  qk_mem_free(texts, text);
  return 0;
}
