// QK_MEM_PROFILE=SITES build/faults/freed_object
#include <cstdio>

#include "qkmem/qkmem.hpp"

struct Door {
  ~Door() { std::puts("closed"); }
};

int main() {
  const int house = qk_mem_new_handle("", "HO");
  Door* const front = qk::make<Door>(house);
  Door* const back = qk::make<Door>(house);
  qk::destroy(house, front);
  qk_mem_free(house, back);
  return 0;
}
