/* Configuration by a C program, which has no qk::Status. */
#include <string.h>

#include "qkmem/qkmem.h"
#include "tests/header/expect.h"

static void refuse_mistakes(void) {
  expect(qk_mem_set_debug("EXCEPTONS") == 10041, "an unknown keyword is refused");
  expect(qk_mem_error() == 10041, "the code is the thread's");
  expect(qk_mem_set_debug("EXCEPTIONS=qk_inothing LOG=NONE") == QK_MEM_ERROR_ROUTINE,
         "an unknown routine is refused");
  expect(qk_mem_set_dump(NULL) == QK_MEM_ERROR_NULL_OPTIONS, "null sections are refused");
  expect(qk_mem_error() == QK_MEM_ERROR_NULL_OPTIONS, "the later code replaces the earlier one");
  expect(qk_mem_set_options("HEAPSIZES") == 10041, "an unknown option is refused");
  expect(qk_mem_get_debug(NULL) == 5014, "settings need a buffer");
}

static void configure(void) {
  char settings[QK_MEM_SETTINGS_SIZE];
  expect(qk_mem_set_debug("TRACE EXCEPTIONS=qk_ifree LOG=STDERR") == 0, "switches are set");
  expect(qk_mem_set_dump("OPTIONS=POINTERS") == 0, "sections are set");
  expect(qk_mem_set_options("FLUSH") == 0, "options are set");
  expect(qk_mem_get_debug(settings) == 0, "settings are told");
  expect(strcmp(settings, "EXCEPTIONS='qk_ifree' TRACE  LOG=stderr") == 0, settings);
  expect(qk_mem_debug_on() == 1, "switches are on");
  expect(qk_mem_error() == 5014, "success leaves the code as it is");
}

int main(void) {
  refuse_mistakes();
  configure();
  qk_mem_set_debug("OFF");
  return failures;
}
