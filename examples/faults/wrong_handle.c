/* QK_MEM_PROFILE=SITES build/faults/wrong_handle */
#include "qkmem/qkmem.h"

int main(void) {
  int people = qk_mem_new_handle("", "PE");
  int places = qk_mem_new_handle("", "PL");
  char* name = qk_mem_strdup(people, "Ada");
  char* place = qk_mem_strdup(places, "London");
  qk_mem_free(people, name);
  qk_mem_free(people, place);
  return 0;
}
