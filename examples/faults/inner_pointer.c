/* QK_MEM_PROFILE=SITES build/faults/inner_pointer */
#include <stdio.h>

#include "qkmem/qkmem.h"

int main(void) {
  /* On an ordinary handle the C library would end the program. */
  int texts = qk_mem_new_handle("BLOCKMGMT BLOCKFREE", "TX");
  char* text = qk_mem_strdup(texts, "   Ada");
  while (*text == ' ') ++text;
  puts(text);
  qk_mem_free(texts, text);
  return 0;
}
