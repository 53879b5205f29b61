/* QK_MEM_CHECK=GUARD build/faults/overflow_page */
#include <stdio.h>

#include "qkmem/qkmem.h"

enum { kPixels = 4000, kRows = 3 };

/* Two rows of an image into one. */
static void join(char* row, const char* left, const char* right) {
  for (int i = 0; i < kPixels; ++i) row[i] = left[i];
  for (int i = 0; i < kPixels; ++i) row[kPixels + i] = right[i];
}

int main(void) {
  static const char kWhite[kPixels] = {1};
  int image = qk_mem_new_handle("", "IM");
  char* rows[kRows];
  for (int i = 0; i < kRows; ++i) rows[i] = qk_mem_malloc(image, kPixels);
  puts("joined");
  join(rows[0], kWhite, kWhite);
  return 0;
}
