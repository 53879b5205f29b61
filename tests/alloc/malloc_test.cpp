#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "core/registry.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::data_of;
using kit::Environment;
using kit::Ledger;
using kit::overhead_of;
using kit::Pool;
using kit::Scene;
using kit::tag_of;

void* allocate(int hid, std::size_t size) { return qk_mem_imalloc(hid, size, 16, "src/app.c", 12); }

TEST(Malloc, IsRecordedAndCounted) {
  Ledger ledger("");
  void* first = allocate(ledger.pool, 100);
  EXPECT_EQ(ledger.record(first), "M 1/100 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 1");
  void* second = allocate(ledger.pool, 50);
  EXPECT_EQ(ledger.record(second), "M 1/50 app.c:12 event 2");
  EXPECT_EQ(ledger.sums(), "handle 2 for 150, tag 2 for 150, events 2");
  EXPECT_EQ(ledger.record(first), "M 1/100 app.c:12 event 1");
}

TEST(Malloc, ReturnsMemoryThatCanBeUsedAndFreed) {
  Ledger ledger("");
  void* memory = allocate(ledger.pool, 100);
  std::memset(memory, 0x55, 100);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 16, 0U);
  qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 2");
}

TEST(Malloc, IsLoggedAndTraced) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  allocate(ledger.pool, 100);
  EXPECT_EQ(ledger.log(), "   qk_mem_imalloc:        3 [p1] M 100 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 M [p1] 1 100 app.c 12 100\n");
}

TEST(Malloc, LogsTheHeapChangeUnderHeapsize) {
  Ledger ledger(Environment{"DEBUG", "HEAPSIZE", ""});
  allocate(ledger.pool, 100);
  EXPECT_EQ(ledger.log(), "   qk_mem_imalloc:        3 [p1] M 100 app.c:12 (heap change)\n");
}

TEST(Malloc, IsTracedEvenIfNothingIsLogged) {
  Ledger ledger(Environment{"EXCEPTIONS=qk_ifree", "DB", ""});
  allocate(ledger.pool, 100);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.trace(), "3 M [p1] 1 100 app.c 12 100\n");
}

TEST(Malloc, WarnsOfZeroBytesAndAllocates) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  void* memory = allocate(ledger.pool, 0);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imalloc: WARNING: malloc of 0 at app.c:12\n"
            "   qk_mem_imalloc:        3 [p1] M 0 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 M [p1] 1 0 app.c 12 0\n");
  EXPECT_EQ(ledger.record(memory), "M 1/0 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 0, tag 1 for 0, events 1");
}

TEST(Malloc, IgnoresTheAlignment) {
  Ledger ledger("EXCEPTIONS");
  for (const int alignment : {3, 0, -1, 4096, INT_MIN, INT_MAX}) {
    EXPECT_NE(qk_mem_imalloc(ledger.pool, 10, alignment, "src/app.c", 12), nullptr) << alignment;
  }
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.sums(), "handle 6 for 60, tag 6 for 60, events 6");
}

TEST(Malloc, ReturnsNullWithTheSystemsCodeOnFailure) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  kit::fail_request(1);
  EXPECT_EQ(allocate(ledger.pool, 100), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_imalloc: ERROR: malloc of 100 at app.c:12 failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Malloc, KeepsAnOldErrorCodeOnSuccess) {
  Ledger ledger("");
  kit::fail_request(1);
  EXPECT_EQ(allocate(ledger.pool, 100), nullptr);
  EXPECT_NE(allocate(ledger.pool, 100), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
}

TEST(Malloc, IsFollowedByTheReportUnderCtrlblks) {
  Ledger ledger(
      Environment{"CTRLBLKS=qk_imalloc DEBUG=qk_imalloc", "", "OPTIONS=HANDLES,POINTERS"});
  kit::handle_of(1).seq = 11;
  kit::handle_of(2).seq = 12;
  kit::handle_of(3).seq = 13;
  allocate(ledger.pool, 100);
  EXPECT_EQ(kit::sections_of(ledger.log(), QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "   qk_mem_imalloc:        3 [p1] M 100 app.c:12\n"
            "Overhead handles\n"
            "   +   1                      A    0                 0      11 qkmem.cpp:#\n"
            "Data handles\n"
            "   +   2                           0                 0      12 qkmem.cpp:#\n"
            "   +   3 AB                        1               100      13 pool.c:7\n"
            "Data handle pointers\n"
            "   +   3 AB p1               M     1      100      100     101 app.c:12\n");
}

TEST(Malloc, PrintsNoReportOnFailure) {
  Ledger ledger("CTRLBLKS");
  kit::fail_request(1);
  EXPECT_EQ(allocate(ledger.pool, 100), nullptr);
  EXPECT_EQ(ledger.log(), "");
}

TEST(Malloc, IsCountedOnEveryKindOfOrdinaryHandle) {
  for (const char* options : {"DATA", "OVERHEAD", "AUTOFREE", "MULTITHREADED", "BLOCKFREE"}) {
    Ledger ledger(Environment{"", "", ""}, options, "");
    void* memory = allocate(ledger.pool, 100);
    EXPECT_EQ(ledger.record(memory), "M 1/100 app.c:12 event 1") << options;
    EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 1") << options;
    qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
  }
}

TEST(Malloc, CountsAsDataOnTheOverheadHandleToo) {
  Scene scene("");
  qk_mem_init();
  kit::make_arrays(QK_MEM_OVERHEAD_HANDLE);
  const std::string overhead = overhead_of(QK_MEM_OVERHEAD_HANDLE);
  EXPECT_NE(allocate(QK_MEM_OVERHEAD_HANDLE, 100), nullptr);
  EXPECT_EQ(data_of(QK_MEM_OVERHEAD_HANDLE), "1 for 100");
  EXPECT_EQ(overhead_of(QK_MEM_OVERHEAD_HANDLE), overhead);
}

TEST(Malloc, RecordsOnTheDataHandleOnceAnythingIsConfigured) {
  Scene scene(Environment{"EXCEPTIONS=qk_ifree", "DB", ""});
  qk_mem_init();
  kit::make_arrays(QK_MEM_DATA_HANDLE);
  scene.skip_trace();
  allocate(QK_MEM_DATA_HANDLE, 100);
  EXPECT_EQ(data_of(QK_MEM_DATA_HANDLE), "1 for 100");
  EXPECT_EQ(tag_of(""), "1 for 100");
  EXPECT_EQ(scene.trace(), "2 M [p1] 1 100 app.c 12 100\n");
}

TEST(Malloc, IsAddedToTheTagOfItsHandle) {
  Scene scene("");
  Pool one("", "AB");
  Pool two("OVERHEAD", "ab");
  Pool other("", "A");
  Pool untagged;
  allocate(one, 100);
  allocate(two, 10);
  allocate(other, 7);
  allocate(untagged, 3);
  EXPECT_EQ(tag_of("AB"), "2 for 110");
  EXPECT_EQ(tag_of("A"), "1 for 7");
  EXPECT_EQ(tag_of(""), "1 for 3");
  EXPECT_EQ(qk_mem_tag_size("ab"), 110);
}

TEST(Malloc, AddsOverheadOnlyIfItsPointerArrayIsFull) {
  Ledger ledger("");
  const std::string overhead = overhead_of(ledger.pool);
  allocate(ledger.pool, 100);
  EXPECT_EQ(overhead_of(ledger.pool), overhead);

  kit::fill_arrays(ledger.pool);
  const std::uint64_t bytes = ledger.pool.record().overhead_amount;
  const std::uint32_t quantity = ledger.pool.record().overhead_qty;
  allocate(ledger.pool, 100);
  EXPECT_EQ(ledger.pool.record().overhead_amount - bytes, 3072U);
  EXPECT_EQ(ledger.pool.record().overhead_qty, quantity);
}

TEST(Malloc, IsLoggedAfterTheGrowthOfItsPointerArray) {
  Ledger ledger(Environment{"DEBUG=qk_imalloc", "DB", ""});
  kit::fill_arrays(ledger.pool);
  ledger.skip_all();
  void* memory = allocate(ledger.pool, 100);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_new_ptr:        3 [p1] P 80/48 app.c:12\n"
            "   qk_mem_imalloc:        3 [p2] M 100 app.c:12\n");
  EXPECT_EQ(ledger.trace(),
            "3 P [p1] 80 48 app.c 12 3072\n"
            "3 M [p2] 1 100 app.c 12 100\n");
  EXPECT_EQ(ledger.record(memory), "M 1/100 app.c:12 event 2");
}

}  // namespace
