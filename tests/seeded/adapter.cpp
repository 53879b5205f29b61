#include "tests/seeded/adapter.h"

#include "qkmem/qkmem.h"

namespace seeded {
namespace {

int memory_of_library() {
  static const int handle = qk_mem_new_handle("MULTITHREADED", "LI");
  return handle;
}

void* allocate(unsigned long size) {
  return qk_mem_malloc(memory_of_library(), size);  // guilty: callback, library
}

void release(void* memory) { qk_mem_free(memory_of_library(), memory); }

}  // namespace

Hooks hooks_on_a_handle() { return {allocate, release}; }

void* parse_list(const Hooks& hooks) {
  hooks.release(hooks.allocate(900));
  return hooks.allocate(700);
}

void forget_list(const Hooks& hooks, void* list) { hooks.release(list); }

}  // namespace seeded
