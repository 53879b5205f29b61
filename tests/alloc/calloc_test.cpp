#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;
using kit::Scene;

void* allocate(int hid, std::size_t num, std::size_t size) {
  return qk_mem_icalloc(hid, num, size, 16, "src/app.c", 12);
}

TEST(Calloc, IsRecordedByElementsAndCountedByBytes) {
  Ledger ledger("");
  void* memory = allocate(ledger.pool, 10, 8);
  EXPECT_EQ(ledger.record(memory), "C 10/8 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 80, tag 1 for 80, events 1");
  qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 2");
}

TEST(Calloc, GivesZeroedMemory) {
  Ledger ledger("");
  void* used = qk_mem_imalloc(ledger.pool, 80, 16, "src/app.c", 11);
  std::memset(used, 0x55, 80);
  qk_mem_ifree(ledger.pool, used, "src/app.c", 11);
  const void* memory = allocate(ledger.pool, 10, 8);
  EXPECT_EQ(std::string(static_cast<const char*>(memory), 80), std::string(80, '\0'));
}

TEST(Calloc, IsLoggedAndTracedWithCountAndSize) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  allocate(ledger.pool, 10, 8);
  EXPECT_EQ(ledger.log(), "   qk_mem_icalloc:        3 [p1] C 10/8 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 C [p1] 10 8 app.c 12 80\n");
}

TEST(Calloc, LogsTheHeapChangeUnderHeapsize) {
  Ledger ledger(Environment{"DEBUG", "HEAPSIZE", ""});
  allocate(ledger.pool, 10, 8);
  EXPECT_EQ(ledger.log(), "   qk_mem_icalloc:        3 [p1] C 10/8 app.c:12 (heap change)\n");
}

TEST(Calloc, IsTracedEvenIfNothingIsLogged) {
  Ledger ledger(Environment{"EXCEPTIONS=qk_ifree", "DB", ""});
  allocate(ledger.pool, 10, 8);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.trace(), "3 C [p1] 10 8 app.c 12 80\n");
}

TEST(Calloc, WarnsOfZeroElementsOrBytesAndAllocates) {
  struct {
    std::size_t num;
    std::size_t size;
    const char* log;
    const char* record;
  } const rows[] = {
      {0, 8, "   qk_mem_icalloc: WARNING: calloc of 0 num at app.c:12\n", "C 0/8 app.c:12 event 1"},
      {10, 0, "   qk_mem_icalloc: WARNING: calloc of 0 at app.c:12\n", "C 10/0 app.c:12 event 1"},
      {0, 0,
       "   qk_mem_icalloc: WARNING: calloc of 0 num at app.c:12\n"
       "   qk_mem_icalloc: WARNING: calloc of 0 at app.c:12\n",
       "C 0/0 app.c:12 event 1"},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.skip_all();
    void* memory = allocate(ledger.pool, row.num, row.size);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(ledger.log(), row.log);
    EXPECT_EQ(ledger.record(memory), row.record);
    EXPECT_EQ(ledger.sums(), "handle 1 for 0, tag 1 for 0, events 1");
    qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
  }
}

TEST(Calloc, LogsItsWarningsOfZeroBeforeItsEvent) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  allocate(ledger.pool, 0, 0);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_icalloc: WARNING: calloc of 0 num at app.c:12\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 at app.c:12\n"
            "   qk_mem_icalloc:        3 [p1] C 0/0 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 C [p1] 0 0 app.c 12 0\n");
}

TEST(Calloc, IgnoresTheAlignment) {
  Ledger ledger("EXCEPTIONS");
  for (const int alignment : {3, 0, -1, 4096, INT_MIN, INT_MAX}) {
    EXPECT_NE(qk_mem_icalloc(ledger.pool, 1, 10, alignment, "src/app.c", 12), nullptr) << alignment;
  }
  EXPECT_EQ(ledger.log(), "");
}

TEST(Calloc, ReturnsNullWithTheSystemsCodeOnFailure) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  kit::fail_request(1);
  EXPECT_EQ(allocate(ledger.pool, 10, 8), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_icalloc: ERROR: calloc of 10/8 at app.c:12 failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Calloc, IsFollowedByTheReportUnderCtrlblks) {
  Ledger ledger(Environment{"CTRLBLKS=qk_icalloc", "", "OPTIONS=POINTERS"});
  allocate(ledger.pool, 10, 8);
  EXPECT_EQ(kit::sections_of(ledger.log(), QK_MEM_DUMP_POINTERS),
            "Data handle pointers\n"
            "   +   3 AB p1               C    10        8       80     101 app.c:12\n");
}

TEST(Calloc, PrintsNoReportOnFailure) {
  Ledger ledger("CTRLBLKS");
  kit::fail_request(1);
  EXPECT_EQ(allocate(ledger.pool, 10, 8), nullptr);
  EXPECT_EQ(ledger.log(), "");
}

TEST(Calloc, RecordsOnTheDataHandleOnceAnythingIsConfigured) {
  Scene scene(Environment{"EXCEPTIONS=qk_ifree", "DB", ""});
  qk_mem_init();
  kit::make_arrays(QK_MEM_DATA_HANDLE);
  scene.skip_trace();
  allocate(QK_MEM_DATA_HANDLE, 10, 8);
  EXPECT_EQ(kit::data_of(QK_MEM_DATA_HANDLE), "1 for 80");
  EXPECT_EQ(kit::tag_of(""), "1 for 80");
  EXPECT_EQ(scene.trace(), "2 C [p1] 10 8 app.c 12 80\n");
}

}  // namespace
