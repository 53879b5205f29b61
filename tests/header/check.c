/* Questions about addresses as a C program asks them. */
#include "qkmem/check.h"

#include <string.h>

#include "qkmem/qkmem.h"
#include "tests/header/expect.h"

int main(void) {
  const int hid = qk_mem_new_handle("DATA", "CK");
  char* block = qk_mem_imalloc(hid, 10, QK_MEM_ALIGNMENT, "check.c", 5);
  char text[100];
  qk_mem_describe(block + 3, text, sizeof text);
  /* The profile, which can be on, knows the event as well. */
  static const char kWords[] =
      "3 bytes inside a block of 10 on handle 3 CK, allocated at check.c:5";
  expect(strncmp(text, kWords, sizeof kWords - 1) == 0, "an address is described");
  expect(qk_mem_describe(NULL, NULL, 0) == 4, "the length is told without a buffer");
  qk_mem_del_handle(hid);
  return failures == 0 ? 0 : 1;
}
