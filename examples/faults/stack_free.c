/* QK_MEM_CHECK=GUARD build/faults/stack_free */
#include <stdio.h>

#include "qkmem/qkmem.h"

int main(int argc, char** argv) {
  (void)argv;
  int texts = qk_mem_new_handle("", "TX");
  char small[16] = "short";
  char* text = argc > 1 ? qk_mem_malloc(texts, 1000) : small;
  puts(text);
  qk_mem_free(texts, text);
  return 0;
}
