// usage: profiled ROUNDS [GROWTH]
//
// A program whose profile other programs open: each round keeps 3 blocks of 4,100 bytes in all, and
// frees one of 50 bytes. With GROWTH, it frees one of 500 bytes after the first round, and writes
// to a file of that name what has grown since the first round.
#include <cstdio>
#include <cstdlib>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

namespace {

/** The comparison keeps the call from being the last thing that the function does. */
[[gnu::noipa]] bool take(int hid, std::size_t size) { return qk_mem_malloc(hid, size) != nullptr; }

[[gnu::noinline]] void keep_some(int hid) {
  const qk::Site label("keeping \"some\"");
  take(hid, 100);
  take(hid, 1000);
}

void live_a_round(int hid) {
  keep_some(hid);
  qk_mem_free(hid, qk_mem_malloc(hid, 50));
  take(QK_MEM_DATA_HANDLE, 3000);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) return 2;
  const int hid = qk_mem_new_handle("", "AB");
  void* const first = argc == 3 ? qk_mem_malloc(hid, 500) : nullptr;
  live_a_round(hid);
  if (argc == 3) {
    qk_mem_snapshot("first round");
    qk_mem_free(hid, first);
  }
  for (int rounds = std::atoi(argv[1]); rounds > 1; --rounds) live_a_round(hid);
  if (argc == 2) return 0;
  std::FILE* const growth = std::fopen(argv[2], "w");
  if (growth == nullptr) return 1;
  const int code = qk_mem_profile_report(growth, "SINCE='first round'");
  return std::fclose(growth) == 0 ? code : 1;
}
