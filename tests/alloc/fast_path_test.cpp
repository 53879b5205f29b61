#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "core/registry.h"
#include "core/roads.h"
#include "core/switches.h"
#include "diag/trace_file.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

/** Calls that are neither checked nor traced take the fast path. */
namespace {

using kit::Scene;

/** Makes calls take the slow path: all are checked, and traced to `trace_file`. */
void take_slow_path(FILE* trace_file) {
  for (int routine = 0; routine < 20; ++routine) Qk_mem_debug[routine].on = 1;
  Qk_mem_db = trace_file;
  const qk::mem::RegistryLock lock;
  qk::mem::settle_all_roads();
}

struct Held {
  int hid;
  void* memory;
};

/** Random calls on handles of every kind, the same for the same seed. */
class RandomCalls {
 public:
  explicit RandomCalls(unsigned seed) : random_(seed) {
    for (const char* options : {"", "MULTITHREADED", "BLOCKMGMT BLOCKSIZE=500 BLOCKFREE",
                                "BLOCKMGMT BLOCKSIZE=3000", "BLOCKMGMT BLOCKFREE MULTITHREADED"}) {
      handles_.push_back(qk_mem_inew_handle(options, "AB", "src/app.c", 3));
    }
  }

  void step() {
    const int hid = handles_[pick(handles_.size())];
    switch (pick(held_.size() > 600 ? 12 : 9)) {
      case 0:
      case 1:
      case 2:
        keep(hid, qk_mem_imalloc(hid, pick(200), 1 << pick(5), "src/app.c", line()));
        return;
      case 3:
        keep(hid, qk_mem_icalloc(hid, pick(10), pick(30), 8, "lib/other.c", line()));
        return;
      case 4:
        keep(hid, qk_mem_istrdup(hid, "some words", "words.c", line()));
        return;
      case 5:
        resize();
        return;
      case 6:
        if (pick(40) == 0) clear(handles_[2 + pick(3)]);
        return;
      default:
        release();
    }
  }

 private:
  unsigned pick(std::size_t end) { return static_cast<unsigned>(random_() % end); }
  int line() { return static_cast<int>(pick(100000)); }

  void keep(int hid, void* memory) {
    if (memory != nullptr) held_.push_back({hid, memory});
  }

  void resize() {
    if (held_.empty()) return;
    Held& held = held_[pick(held_.size())];
    void* memory = qk_mem_irealloc(held.hid, held.memory, 1 + pick(300), 8, "src/app.c", line());
    if (memory != nullptr) held.memory = memory;
  }

  void release() {
    if (held_.empty()) return;
    const std::size_t at = pick(held_.size());
    const Held held = held_[at];
    held_[at] = held_.back();
    held_.pop_back();
    qk_mem_ifree(held.hid, held.memory, "src/app.c", line());
  }

  void clear(int hid) {
    qk_mem_iclear_handle(hid, "src/app.c", line());
    std::erase_if(held_, [hid](const Held& held) { return held.hid == hid; });
  }

  std::mt19937 random_;
  std::vector<int> handles_;
  std::vector<Held> held_;
};

/** Prints every figure and every slot of all handles. */
void print_accounting() {
  std::printf("events %u, tag %s\n", Qk_mem_seq, kit::tag_of("AB").c_str());
  for (int hid = 1; hid <= Qk_mem_num_handles; ++hid) {
    const qk_mem_handle& handle = *Qk_mem_handles[hid - 1];
    std::printf("%d: data %s, overhead %s, blocks %u, %lu used\n", hid, kit::data_of(hid).c_str(),
                kit::overhead_of(hid).c_str(), handle.num_blocks, handle.block_used);
    for (const qk_mem_ptr_array& array : handle.ptrs) {
      std::printf("  array of %d, %d used\n", array.capacity, array.used);
      for (int i = 0; array.ptrs != nullptr && i < array.capacity; ++i) {
        const qk_mem_ptr& slot = array.ptrs[i];
        std::printf("    %d %d %p %lu/%lu %s:%d event %u\n", i, slot.kind, slot.address, slot.count,
                    slot.size, slot.file == nullptr ? "" : slot.file, slot.line, slot.seq);
      }
    }
  }
}

/** Makes the calls in a child process, which writes its accounting to `file`. */
void run_in_child(unsigned seed, bool slow, const char* file) {
  const pid_t child = fork();
  if (child != 0) {
    waitpid(child, nullptr, 0);
    return;
  }
  if (std::freopen(file, "w", stdout) == nullptr) _Exit(1);
  qk_mem_init();
  FILE* trace_file = std::fopen("/dev/null", "w");
  std::setvbuf(trace_file, nullptr, _IONBF, 0);
  if (slow) take_slow_path(trace_file);
  RandomCalls calls(seed);
  for (int i = 0; i < 6000; ++i) calls.step();
  print_accounting();
  std::fflush(stdout);
  _Exit(0);
}

TEST(FastPath, LeavesTheSameAccountingAsTheSlowPath) {
  const Scene scene;
  for (unsigned seed = 1; seed <= 8; ++seed) {
    // Nothing is allocated between the two, so that both get the same addresses.
    run_in_child(seed, false, "fast.txt");
    run_in_child(seed, true, "slow.txt");
    const std::string accounting = kit::contents("fast.txt");
    EXPECT_GT(accounting.size(), 10000U);
    EXPECT_EQ(accounting, kit::contents("slow.txt")) << "seed " << seed;
  }
}

TEST(FastPath, KeepsTheSumsOnAFailedRealloc) {
  const Scene scene;
  const int hid = qk_mem_inew_handle("", "AB", "src/app.c", 3);
  void* memory = qk_mem_imalloc(hid, 10, 16, "src/app.c", 4);
  const std::string data = kit::data_of(hid);
  kit::fail_request(1);
  EXPECT_EQ(qk_mem_irealloc(hid, memory, 20, 16, "src/app.c", 5), nullptr);
  EXPECT_EQ(kit::data_of(hid), data);
  EXPECT_EQ(kit::tag_of("AB"), data);
  EXPECT_EQ(qk_mem_isize(hid, "src/app.c", 6), 10U);
  qk_mem_ifree(hid, memory, "src/app.c", 7);
}

}  // namespace
