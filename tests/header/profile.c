/* The profile as a C program uses it. */
#include "qkmem/profile.h"

#include <stdint.h>
#include <stdio.h>

#include "qkmem/qkmem.h"
#include "tests/header/expect.h"

int main(void) {
  expect(qk_mem_profile_config("SITES REPORT=/dev/null") == 0, "the profile is switched on");
  const int hid = qk_mem_new_handle("DATA", "PA");
  expect(qk_mem_snapshot("before") == 0, "a snapshot is taken");
  void* block = qk_mem_malloc(hid, 10);
  const struct qk_mem_change change = qk_mem_growth("before", "TAG=PA");
  expect(change.bytes == 10 && change.blocks == 1 && change.handles == 1, "growth is measured");
  qk_mem_free(hid, block);
  expect(qk_mem_growth("before", NULL).bytes == 0, "what is freed is no growth");
  FILE* file = tmpfile();
  expect(file != NULL && qk_mem_profile_report(file, "SINCE=before") == 0, "growth is reported");
  expect(file != NULL && ftell(file) > 0, "a report is written");
  const int code = file == NULL ? 0 : qk_mem_lost(file);
  expect(code == 0 || code == 5095, "lost memory is searched for, or there is a reason why not");
  if (file != NULL) fclose(file);
  expect(qk_mem_drop_snapshot("before") == 0, "a snapshot is dropped");
  qk_mem_push_site("label");
  qk_mem_pop_site();
  qk_mem_profile_tick();
  return failures == 0 ? 0 : 1;
}
