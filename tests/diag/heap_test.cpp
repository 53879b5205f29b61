#include "diag/heap.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/registry.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::Ended;
using kit::Scene;
using kit::set_heap;

std::string heap_text() {
  char text[48] = "old";
  EXPECT_EQ(qk_mem_heapsize_string(text), text);
  return text;
}

TEST(Heapsize, IsWhatTheAllocatorGotFromTheSystem) {
  const Scene scene;
  set_heap(135168);
  EXPECT_EQ(qk_heapsize(), 135168);
  EXPECT_EQ(kit::heap_probes(), 1);
}

TEST(Heapsize, IsASignedFigureOf32Bits) {
  const Scene scene;
  set_heap(-4096);
  EXPECT_EQ(qk_heapsize(), -4096L);
}

TEST(Heapsize, DoesNotStartTheLibraryUp) {
  const Scene scene;
  (void)qk_heapsize();
  EXPECT_EQ(Qk_mem_initialized, 0);
}

TEST(Heapsize, AllocatesAtItsFirstCallOnly) {
  const Scene scene;
  kit::fail_request(2);
  (void)qk_heapsize();
  (void)qk_heapsize();
  EXPECT_FALSE(kit::has_failed());
  kit::fail_request(1);
  (void)qk_heapsize();
  EXPECT_FALSE(kit::has_failed());
  kit::let_succeed();
}

TEST(Heapsize, IsReturnedEvenIfNothingCanBeAllocated) {
  const Scene scene;
  set_heap(4096);
  kit::fail_all_requests();
  const long heap = qk_heapsize();
  kit::let_succeed();
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(heap, 4096);
}

TEST(HeapText, ShowsTheHeapAndItsChangeSinceTheLastText) {
  const Scene scene;
  Qk_mem_opts = 1;
  set_heap(4096);
  EXPECT_EQ(heap_text(), " (4096 4096)");
  set_heap(5000);
  EXPECT_EQ(heap_text(), " (5000 904)");
  EXPECT_EQ(heap_text(), " (5000 0)");
  set_heap(-100);
  EXPECT_EQ(heap_text(), " (-100 -5100)");
}

TEST(HeapText, IsEmptyWhileOffAndRemembersTheLastText) {
  const Scene scene;
  set_heap(1000);
  EXPECT_EQ(heap_text(), "");
  EXPECT_EQ(kit::heap_probes(), 0);
  Qk_mem_opts = 1;
  EXPECT_EQ(heap_text(), " (1000 1000)");
  Qk_mem_opts = 0;
  set_heap(3000);
  EXPECT_EQ(heap_text(), "");
  Qk_mem_opts = 1;
  EXPECT_EQ(heap_text(), " (3000 2000)");
}

TEST(HeapText, EndsEachLineOfAnEvent) {
  set_heap(1000);
  Scene scene({"DEBUG", "HEAPSIZE", ""});
  qk_mem_init();
  std::fflush(nullptr);
  const std::size_t before = contents("qkmem.log").size();
  set_heap(1500);
  qk_mem_ifree(QK_MEM_DATA_HANDLE, qk_mem_imalloc(QK_MEM_DATA_HANDLE, 8, 16, "app.c", 1), "app.c",
               2);
  std::fflush(nullptr);
  const std::string log = contents("qkmem.log").substr(before);
  EXPECT_NE(log.find(" M 8 app.c:1 (1500 "), std::string::npos) << log;
  EXPECT_NE(log.find(" F app.c:2; M 8 app.c:1 (1500 0)\n"), std::string::npos) << log;
}

struct mallinfo distinct_figures() {
  struct mallinfo figures = {};
  figures.arena = 135168;
  figures.ordblks = 2;
  figures.smblks = 3;
  figures.hblks = 4;
  figures.hblkhd = 500000;
  figures.usmblks = 6;
  figures.fsmblks = 7;
  figures.uordblks = 80000;
  figures.fordblks = 55168;
  figures.keepcost = -1;
  return figures;
}

// Hblkhd is printed before Hblks, unlike in the structure.
TEST(Mallinfo, PrintsTheAllocatorsStatistics) {
  Scene scene("EXCEPTIONS");
  qk_mem_init();
  scene.skip_log();
  kit::set_heap_statistics(distinct_figures());
  qk_mallinfo();
  EXPECT_EQ(scene.log(),
            "-------------------------------------------------\n"
            "Mallinfo stats\n"
            "  Arena:           135168\n"
            "  Ordblks:              2\n"
            "  Smblks:               3\n"
            "  Hblkhd:          500000\n"
            "  Hblks:                4\n"
            "  Usmblks:              6\n"
            "  Fsmblks:              7\n"
            "  Uordblks:         80000\n"
            "  Fordblks:         55168\n"
            "  Keepcost:            -1\n"
            "-------------------------------------------------\n");
}

TEST(Mallinfo, PrintsNothingWithoutALog) {
  const Scene scene;
  const Ended ended = kit::run({"TRACE", "", ""}, [] { qk_mallinfo(); });
  EXPECT_EQ(ended.out + ended.err + ended.log, "");
}

TEST(Mallinfo, StartsTheLibraryUp) {
  const Scene scene;
  qk_mallinfo();
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

}  // namespace
