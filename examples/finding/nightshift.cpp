// A mailroom that is open all night. Of ten letters one is forgotten.
// usage: nightshift (LETTERS|COMMAND)...   letters that arrive, and what is done in between
#include <cstdlib>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

namespace {

const int mail = qk_mem_new_handle("DATA", "MA");

void deliver(int letter) {
  void* const text = qk_mem_malloc(mail, 300);
  if (letter % 10 == 0) return;
  qk_mem_free(mail, text);
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const int letters = std::atoi(argv[i]);
    if (letters == 0 && std::system(argv[i]) != 0) return 1;
    qk_mem_profile_tick();  // as every loop can that has waited
    for (int letter = 1; letter <= letters; ++letter) deliver(letter);
  }
  return 0;
}
