/* QK_MEM_PROFILE=SITES build/faults/double_free */
#include "qkmem/qkmem.h"

static int names;

static void forget(char* name) { qk_mem_free(names, name); }

int main(void) {
  /* On an ordinary handle the C library would end the program here. */
  names = qk_mem_new_handle("BLOCKMGMT BLOCKFREE", "NA");
  char* name = qk_mem_strdup(names, "Ada");
  forget(name);
  qk_mem_free(names, name);
  return 0;
}
