/* QK_MEM_PROFILE="SITES REPORT=/dev/null" build/faults/growing_cache */
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

static int* cache[1000];

static void remember_square(int handle, int number) {
  if (cache[number] == NULL) cache[number] = qk_mem_malloc(handle, sizeof(int));
  *cache[number] = number * number;
}

int main(void) {
  int handle = qk_mem_new_handle("", "CA");
  for (int number = 0; number < 100; ++number) remember_square(handle, number);
  qk_mem_snapshot("warm");
  for (int number = 0; number < 1000; ++number) remember_square(handle, number);
  qk_mem_profile_report(stdout, "SINCE=warm");
  for (int number = 0; number < 1000; ++number) qk_mem_free(handle, cache[number]);
  return 0;
}
