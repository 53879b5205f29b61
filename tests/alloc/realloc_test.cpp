#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;
using kit::Scene;

void* resize(int hid, void* memory, std::size_t size) {
  return qk_mem_irealloc(hid, memory, size, 16, "lib/other.c", 80);
}

void* allocate(int hid, std::size_t size) { return qk_mem_imalloc(hid, size, 16, "src/app.c", 12); }

/** The old address in a line whose new address is "p1". They are the same unless it moved. */
std::string old_name(const void* now, const void* before) { return now == before ? "p1" : "p2"; }

TEST(Realloc, AllocatesIfThePointerIsNull) {
  Ledger ledger("");
  void* memory = resize(ledger.pool, nullptr, 100);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(ledger.record(memory), "R 1/100 other.c:80 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 1");
  qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 2");
}

TEST(Realloc, LogsAnAllocationAsNewlyCreated) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  resize(ledger.pool, nullptr, 100);
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] R 100 other.c:80; newly created\n");
  EXPECT_EQ(ledger.trace(), "3 R [p1] 1 100 other.c 80 100\n");
}

TEST(Realloc, ReplacesTheRecordOfItsMemory) {
  Ledger ledger("");
  void* before = allocate(ledger.pool, 100);
  void* grown = resize(ledger.pool, before, 150);
  EXPECT_EQ(ledger.record(grown), "R 1/150 other.c:80 event 2");
  EXPECT_EQ(ledger.sums(), "handle 1 for 150, tag 1 for 150, events 2");
  void* shrunk = resize(ledger.pool, grown, 30);
  EXPECT_EQ(ledger.record(shrunk), "R 1/30 other.c:80 event 3");
  EXPECT_EQ(ledger.sums(), "handle 1 for 30, tag 1 for 30, events 3");
}

TEST(Realloc, RemovesTheRecordOfTheOldAddress) {
  Ledger ledger("");
  void* before = allocate(ledger.pool, 100);
  allocate(ledger.pool, 100);  // Lies behind it, so that it must move.
  void* now = resize(ledger.pool, before, 1 << 20);
  ASSERT_NE(now, before);
  EXPECT_EQ(ledger.record(before), "none");
  EXPECT_EQ(ledger.record(now), "R 1/1048576 other.c:80 event 3");
  EXPECT_EQ(ledger.sums(), "handle 2 for 1048676, tag 2 for 1048676, events 3");
}

TEST(Realloc, KeepsTheContents) {
  Ledger ledger("");
  auto* memory = static_cast<char*>(allocate(ledger.pool, 6));
  std::strcpy(memory, "hello");
  memory = static_cast<char*>(resize(ledger.pool, memory, 1 << 20));
  EXPECT_STREQ(memory, "hello");
  memory = static_cast<char*>(resize(ledger.pool, memory, 6));
  EXPECT_STREQ(memory, "hello");
}

TEST(Realloc, IsLoggedAndTracedWithTheOldRecord) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  void* before = allocate(ledger.pool, 100);
  ledger.skip_all();
  void* now = resize(ledger.pool, before, 150);
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] R 150 other.c:80; [" +
                              old_name(now, before) + "] M 100 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 R [p1] 1 150 other.c 80 50\n");
}

TEST(Realloc, LogsTheHeapChangeUnderHeapsize) {
  Ledger ledger(Environment{"DEBUG=qk_irealloc", "HEAPSIZE", ""});
  void* created = resize(ledger.pool, nullptr, 10);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc:       3 [p1] R 10 other.c:80; newly created (heap change)\n");
  ledger.skip_all();
  void* now = resize(ledger.pool, created, 150);
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] R 150 other.c:80; [" +
                              old_name(now, created) + "] R 10 other.c:80 (heap change)\n");
  ledger.skip_all();
  void* counted = qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12);
  now = resize(ledger.pool, counted, 150);
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] R 150 other.c:80; [" +
                              old_name(now, counted) + "] C 10/8 app.c:12 (heap change)\n");
}

TEST(Realloc, LogsTheOldKindAndTheCountOfACalloc) {
  Ledger ledger(Environment{"DEBUG=qk_irealloc", "DB", ""});
  struct {
    void* before;
    const char* record;
    const char* trace;
  } const rows[] = {
      {qk_mem_imalloc(ledger.pool, 100, 16, "src/app.c", 12), "M 100 app.c:12",
       "3 R [p1] 1 60 other.c 80 -40\n"},
      {qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12), "C 10/8 app.c:12",
       "3 R [p1] 1 60 other.c 80 -20\n"},
      {qk_mem_irealloc(ledger.pool, nullptr, 60, 16, "src/app.c", 12), "R 60 app.c:12",
       "3 R [p1] 1 60 other.c 80 0\n"},
      {qk_mem_istrdup(ledger.pool, "hello", "src/app.c", 12), "S 6 app.c:12",
       "3 R [p1] 1 60 other.c 80 54\n"},
  };
  for (const auto& row : rows) {
    ledger.skip_all();
    void* now = resize(ledger.pool, row.before, 60);
    EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] R 60 other.c:80; [" +
                                old_name(now, row.before) + "] " + row.record + "\n");
    EXPECT_EQ(ledger.trace(), row.trace);
  }
  EXPECT_EQ(ledger.sums(), "handle 4 for 240, tag 4 for 240, events 1");
}

TEST(Realloc, TracesTheSameChangeEvenIfNothingIsLogged) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""});
  void* counted = qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12);
  ledger.skip_all();
  resize(ledger.pool, counted, 60);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.trace(), "3 R [p1] 1 60 other.c 80 -20\n");
}

TEST(Realloc, AddsNoOverheadInManyResizes) {
  Ledger ledger("");
  void* memory = allocate(ledger.pool, 10);
  const std::string overhead = kit::overhead_of(ledger.pool);
  for (std::size_t size = 20; size < 2000; size += 20) {
    memory = resize(ledger.pool, memory, size);
  }
  EXPECT_EQ(kit::overhead_of(ledger.pool), overhead);
  EXPECT_EQ(ledger.sums(), "handle 1 for 1980, tag 1 for 1980, events 100");
}

TEST(Realloc, IgnoresTheAlignment) {
  Ledger ledger("EXCEPTIONS");
  void* memory = nullptr;
  for (const int alignment : {3, 0, -1, 4096, INT_MIN, INT_MAX}) {
    memory = qk_mem_irealloc(ledger.pool, memory, 10, alignment, "src/app.c", 12);
    EXPECT_NE(memory, nullptr) << alignment;
  }
  EXPECT_EQ(ledger.log(), "");
}

TEST(Realloc, IsFollowedByTheReportUnderCtrlblks) {
  Ledger ledger(Environment{"CTRLBLKS=qk_irealloc", "", "OPTIONS=POINTERS"});
  void* before = allocate(ledger.pool, 100);
  resize(ledger.pool, before, 150);
  EXPECT_EQ(kit::sections_of(ledger.log(), QK_MEM_DUMP_POINTERS),
            "Data handle pointers\n"
            "   +   3 AB p1               R     1      150      150     102 other.c:80\n");
}

TEST(Realloc, RecordsOnTheDataHandleOnceAnythingIsConfigured) {
  Scene scene(Environment{"EXCEPTIONS=qk_ifree", "DB", ""});
  qk_mem_init();
  kit::make_arrays(QK_MEM_DATA_HANDLE);
  scene.skip_trace();
  void* memory = resize(QK_MEM_DATA_HANDLE, nullptr, 100);
  resize(QK_MEM_DATA_HANDLE, memory, 40);
  EXPECT_EQ(kit::data_of(QK_MEM_DATA_HANDLE), "1 for 40");
  EXPECT_EQ(kit::tag_of(""), "1 for 40");
}

}  // namespace
