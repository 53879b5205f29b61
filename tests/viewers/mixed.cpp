// usage: mixed ROUNDS
//
// A program whose recording and trace file other programs open. Each place that allocates has a
// function and a size of its own. Most is in use before the cache is emptied, held by other places
// than at the end.
#include <cstdlib>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

namespace {

/** Without what is done with it, the call would be the last thing that a function does. */
[[gnu::always_inline]] inline void* some(void* memory) {
  if (memory == nullptr) std::abort();
  return memory;
}

[[gnu::noipa]] void* make_settings() { return some(qk_mem_calloc(QK_MEM_DATA_HANDLE, 7, 431)); }
[[gnu::noipa]] void* make_entry(int hid) { return some(qk_mem_malloc(hid, 1013)); }
[[gnu::noipa]] void* make_name(int hid) { return some(qk_mem_malloc(hid, 29)); }
[[gnu::noipa]] void* make_scratch(int hid) { return some(qk_mem_malloc(hid, 53)); }
[[gnu::noipa]] void* make_result(int hid) { return some(qk_mem_malloc(hid, 4099)); }
[[gnu::noipa]] void* grow(int hid, void* text, std::size_t size) {
  return some(qk_mem_realloc(hid, text, size));
}

[[gnu::noipa]] void* make_labelled_name(int hid) {
  const qk::Site label("<b>all</b> \"names\"; 50% & more");
  return some(make_name(hid));
}

void work(int rounds, int cache, int names) {
  void* entry = make_entry(cache);
  void* text = nullptr;
  for (int round = 1; round <= rounds; ++round) {
    make_name(names);
    make_labelled_name(cache);
    qk_mem_free(names, make_scratch(names));
    text = grow(cache, text, 64 * static_cast<std::size_t>(round) + 5);
    void** const next = static_cast<void**>(make_entry(cache));
    *next = entry;
    entry = next;
  }
  qk_mem_snapshot("the cache is full");
  // All of its entries but the first one.
  for (int round = 1; round <= rounds; ++round) {
    void* const next = *static_cast<void**>(entry);
    qk_mem_free(cache, entry);
    entry = next;
  }
  qk_mem_free(cache, text);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  make_settings();
  const int cache = qk_mem_new_handle("", "CA");
  const int names = qk_mem_new_handle("", "");
  const int results = qk_mem_new_handle("", "CA");
  work(std::atoi(argv[1]), cache, names);
  make_result(results);
  return 0;
}
