#include <gtest/gtest.h>

#include <cstddef>

#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;
using kit::Scene;

constexpr auto kNoSize = static_cast<std::size_t>(-1);

std::size_t size_of(int hid) { return qk_mem_isize(hid, "src/app.c", 70000); }

TEST(Size, IsTheSumOfTheHandlesLiveMemory) {
  Ledger ledger("");
  EXPECT_EQ(size_of(ledger.pool), 0U);
  void* memory = qk_mem_imalloc(ledger.pool, 100, 16, "src/app.c", 12);
  EXPECT_EQ(size_of(ledger.pool), 100U);
  void* counted = qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12);
  EXPECT_EQ(size_of(ledger.pool), 180U);
  char* text = qk_mem_istrdup(ledger.pool, "hello", "src/app.c", 12);
  EXPECT_EQ(size_of(ledger.pool), 186U);
  memory = qk_mem_irealloc(ledger.pool, memory, 30, 16, "src/app.c", 12);
  EXPECT_EQ(size_of(ledger.pool), 116U);
  counted = qk_mem_irecalloc(ledger.pool, counted, 20, 8, 10, 16, "src/app.c", 12);
  EXPECT_EQ(size_of(ledger.pool), 196U);
  qk_mem_ifree(ledger.pool, memory, "src/app.c", 12);
  qk_mem_ifree(ledger.pool, counted, "src/app.c", 12);
  qk_mem_ifree(ledger.pool, text, "src/app.c", 12);
  EXPECT_EQ(size_of(ledger.pool), 0U);
}

TEST(Size, LeavesOutTheBookkeeping) {
  Scene scene("DEBUG");
  EXPECT_EQ(size_of(QK_MEM_OVERHEAD_HANDLE), 0U);
  EXPECT_EQ(size_of(QK_MEM_DATA_HANDLE), 0U);
}

TEST(Size, CountsNoEventAndWritesNothing) {
  Ledger ledger(Environment{"DEBUG CTRLBLKS", "DB HEAPSIZE", ""});
  EXPECT_EQ(size_of(ledger.pool), 0U);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Size, IsMinusOneForAnInvalidHandle) {
  Ledger ledger("DEBUG");
  EXPECT_EQ(size_of(4), kNoSize);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(ledger.log(), "   qk_mem_isize: ERROR: invalid hid 4 at app.c:70000\n");
}

TEST(Size, LogsAnInvalidHandleUnderTheGlobalSwitches) {
  struct {
    const char* debug;
    const char* log;
  } const rows[] = {
      {"DEBUG=qk_imalloc", "   qk_mem_isize: ERROR: invalid hid 4 at app.c:70000\n"},
      {"DEBUG=not,global", ""},
      {"EXCEPTIONS", ""},
      {"CTRLBLKS", ""},
      {"SUMMARY TRACE", ""},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    EXPECT_EQ(size_of(4), kNoSize);
    EXPECT_EQ(ledger.log(), row.log) << row.debug;
  }
}

TEST(Size, StartsTheLibraryUp) {
  Scene scene("");
  EXPECT_EQ(size_of(QK_MEM_DATA_HANDLE), 0U);
  EXPECT_EQ(qk_mem_error(), 0);
}

}  // namespace
