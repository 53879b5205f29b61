#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <string>

#include "core/records.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::handle_of;
using kit::Scene;

/** Sets what depends on the allocator to fixed values. */
void fix_values(int hid, std::uint32_t seq) {
  qk_mem_handle& handle = handle_of(hid);
  handle.seq = seq;
  handle.overhead_qty = 2;
  handle.overhead_amount = 1000;
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    for (int i = 1; i < array.capacity; ++i) array.ptrs[i].seq = seq + 1;
  }
}

void leak() {
  kit::set_heap(135168);
  const int config = qk_mem_inew_handle("AUTOFREE", "cf", "src/config.c", 10);
  (void)qk_mem_istrdup(config, "/etc/app", "src/config.c", 31);
  const int index = qk_mem_inew_handle("MULTITHREADED", "ix", "src/index.c", 204);
  (void)qk_mem_icalloc(index, 10, 24, 16, "src/index.c", 77);
  (void)qk_mem_imalloc(QK_MEM_DATA_HANDLE, 100, 16, "src/main.c", 70000);
  fix_values(QK_MEM_DATA_HANDLE, 20);
  fix_values(index, 40);
  kit::set_heap(270336);
}

constexpr unsigned kSections =
    QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;

// A deletion lowers a tag's quantity by each piece of overhead that it releases.
constexpr char kLeaks[] =
    "Summary\n"
    "   Current:           2        340\n"
    "   Data:              2        340\n"
    "   Management:        4       2000\n"
    "   Initial:                 135168\n"
    "   Heap:                    270336\n"
    "   Untracked:               132828\n"
    "Tags\n"
    "     CF:       4294967295          0\n"
    "     IX:              1        240\n"
    "     NONE:     4294967294        100\n"
    "Data handles\n"
    "   +   2                           1               100      20 qkmem.cpp:#\n"
    "   +   4 IX                        1               240      40 index.c:204\n"
    "Data handle pointers\n"
    "   +   2    p1               M     1      100      100      21 main.c:4464\n"
    "   +   4 IX p2               C    10       24      240      41 index.c:77\n";

TEST(FinalReport, ShowsExactlyTheLeaks) {
  const Scene scene;
  const Ended ended = kit::run({"SUMMARY", "", ""}, leak);
  EXPECT_EQ(kit::sections_of(kit::normalized(ended.log), kSections),
            "QK_MEM_DEBUG:  initializing options [SUMMARY]\n"
            "   qk_mem_cleanup:      Memory at program termination (normal termination)\n" +
                std::string(kLeaks));
}

TEST(FinalReport, IsTheSameAtATerminatingSignal) {
  const Scene scene;
  const struct {
    int number;
    const char* description;
  } signals[] = {
      {SIGTERM, "Terminated"}, {SIGHUP, "Hangup"}, {SIGINT, "Interrupt"}, {SIGQUIT, "Quit"}};
  for (const auto& signal : signals) {
    const Ended ended = kit::run({"SUMMARY", "", ""}, [&signal] {
      leak();
      std::raise(signal.number);
    });
    EXPECT_EQ(kit::sections_of(kit::normalized(ended.log), kSections),
              "QK_MEM_DEBUG:  initializing options [SUMMARY]\n"
              "   qk_mem_cleanup:      Memory at program termination (" +
                  std::string(signal.description) + ")\n" + kLeaks);
    EXPECT_EQ(ended.signal, signal.number);
  }
}

}  // namespace
