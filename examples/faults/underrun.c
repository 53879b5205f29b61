/* QK_MEM_CHECK=GUARD=FRONT build/faults/underrun */
#include <stdio.h>

#include "qkmem/qkmem.h"

/* Digits from the last to the first. */
static char* text_of(char* end, unsigned number) {
  do {
    *--end = (char)('0' + number % 10);
    number /= 10;
  } while (number != 0);
  return end;
}

int main(void) {
  int texts = qk_mem_new_handle("", "TX");
  char* buffer = qk_mem_calloc(texts, 4, 1);
  puts(text_of(buffer + 3, 999));
  puts(text_of(buffer + 3, 1000));
  qk_mem_free(texts, buffer);
  return 0;
}
