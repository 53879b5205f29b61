// A program whose memory is known when it stops. check_gdb.py and docs/gdb.md have its lines.
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <utility>
#include <vector>

#include "qkmem/profile.h"
#include "qkmem/qkmem.hpp"

struct Point {
  int x;
  int y;
};

char settings[32] = "static data";
char* session = nullptr;
char* large = nullptr;
char* piece = nullptr;
char* in_arena = nullptr;
char* unrecorded = nullptr;
char* resized = nullptr;
char* request = nullptr;
Point* point = nullptr;
char* on_other_stack = nullptr;
std::atomic<bool> is_waiting = false;

void stop() { std::abort(); }

void wait_beside() {
  char local = 0;
  on_other_stack = &local;
  is_waiting.store(true);
  is_waiting.notify_one();
  for (;;) pause();
}

void serve(const qk::Handle& sessions, int pieces, int arena) {
  session = static_cast<char*>(qk_mem_malloc(sessions.number(), 40));
  for (int i = 0; i < 3; ++i) qk_mem_strdup(sessions.number(), "name");
  qk_mem_push_site("growing");
  large = static_cast<char*>(qk_mem_malloc(sessions.number(), 200000));
  qk_mem_pop_site();
  piece = static_cast<char*>(qk_mem_malloc(pieces, 24));
  in_arena = static_cast<char*>(qk_mem_malloc(arena, 100));
  unrecorded = static_cast<char*>(qk_mem_malloc(QK_MEM_DATA_HANDLE, 20));
  resized = static_cast<char*>(qk_mem_malloc(sessions.number(), 5000));
  qk_mem_realloc(sessions.number(), resized, 4000);
  request = static_cast<char*>(qk_mem_malloc(sessions.number(), 3000));
}

void finish(const qk::Handle& sessions) {
  int local = 0;
  std::thread(wait_beside).detach();
  is_waiting.wait(false);
  qk_mem_free(sessions.number(), request);
  stop();
  settings[0] = static_cast<char>(local);
}

int main() {
  const int pieces = qk_mem_new_handle("BLOCKMGMT BLOCKFREE BLOCKSIZE=512", "PI");
  qk::Handle moved("AUTOFREE MULTITHREADED", "SE");
  const int arena = qk_mem_new_handle("BLOCKMGMT BLOCKSIZE=256", "");
  const int gone = qk_mem_new_handle("", "GO");
  const qk::On deleted(gone);
  qk_mem_del_handle(gone);
  const qk::Handle sessions(std::move(moved));
  serve(sessions, pieces, arena);
  std::vector<int, qk::allocator<int>> numbers({1, 2, 3}, sessions);
  [[maybe_unused]] const auto allocator = numbers.get_allocator();
  const auto owned = qk::make_unique<Point>(sessions, 1, 2);
  [[maybe_unused]] const auto deleter = owned.get_deleter();
  point = qk::make<Point>(sessions, 3, 4);
  const qk::On pieces_by_number(pieces);
  const qk::memory_resource resource(sessions);
  qk::Tracker<Point> tracker(point);
  finish(sessions);
}
