/* QK_MEM_PROFILE=LOST build/faults/lost_cycle */
#include "qkmem/qkmem.h"

struct person {
  struct person* friend;
};

static struct person* make_person(int handle, struct person* friend) {
  struct person* person = qk_mem_malloc(handle, sizeof *person);
  person->friend = friend;
  return person;
}

int main(void) {
  int handle = qk_mem_new_handle("", "PE");
  for (int i = 0; i < 100; ++i) {
    struct person* one = make_person(handle, NULL);
    one->friend = make_person(handle, one);
  }
  return 0;
}
