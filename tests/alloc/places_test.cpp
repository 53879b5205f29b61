#include <gtest/gtest.h>

#include <string>

#include "accounting/kept_calls.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

/** How the caller's file and line are recorded and shown. */
namespace {

using kit::Environment;
using kit::Ledger;

/** One allocation by each routine, all with the same location. */
struct Memory {
  Memory(int hid, const char* file, int line)
      : allocated(qk_mem_imalloc(hid, 8, 16, file, line)),
        zeroed(qk_mem_icalloc(hid, 2, 8, 16, file, line)),
        resized(qk_mem_irealloc(hid, nullptr, 8, 16, file, line)),
        text(qk_mem_istrdup(hid, "hello", file, line)) {}

  void* allocated;
  void* zeroed;
  void* resized;
  void* text;
};

void misuse_all(int hid, const char* file, int line) {
  qk_mem_ifree(hid, qk_mem_imalloc(hid, 0, 16, file, line), file, line);
  qk_mem_ifree(hid, qk_mem_icalloc(hid, 0, 0, 16, file, line), file, line);
  qk_mem_ifree(hid, qk_mem_irealloc(hid, nullptr, 0, 16, file, line), file, line);
  qk_mem_istrdup(hid, nullptr, file, line);
  qk_mem_ifree(hid, nullptr, file, line);
}

TEST(Location, IsRecordedWithoutFoldersAndWith16BitsOfTheLine) {
  Ledger ledger("");
  const Memory memory(ledger.pool, "/home/user/src/app.c", 70000);
  EXPECT_EQ(ledger.record(memory.allocated), "M 1/8 app.c:4464 event 1");
  EXPECT_EQ(ledger.record(memory.zeroed), "C 2/8 app.c:4464 event 2");
  EXPECT_EQ(ledger.record(memory.resized), "R 1/8 app.c:4464 event 3");
  EXPECT_EQ(ledger.record(memory.text), "S 1/6 app.c:4464 event 4");
}

TEST(Location, PointsIntoTheCallersFileName) {
  Ledger ledger("");
  const char file[] = "src/app.c";
  const Memory memory(ledger.pool, file, 12);
  for (const void* each : {memory.allocated, memory.zeroed, memory.resized, memory.text}) {
    EXPECT_EQ(qk_mem_get_ptr(&ledger.pool.record(), each)->file, file + 4);
  }
}

TEST(Location, IsShownAsRecordedForAnAllocation) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  const Memory memory(ledger.pool, "src/app.c", 70000);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imalloc:        3 [p1] M 8 app.c:4464\n"
            "   qk_mem_icalloc:        3 [p2] C 2/8 app.c:4464\n"
            "   qk_mem_irealloc:       3 [p3] R 8 app.c:4464; newly created\n"
            "   qk_mem_istrdup:        3 [p4] S 6 app.c:4464\n");
  EXPECT_EQ(ledger.trace(),
            "3 M [p1] 1 8 app.c 4464 8\n"
            "3 C [p2] 2 8 app.c 4464 16\n"
            "3 R [p3] 1 8 app.c 4464 8\n"
            "3 S [p4] 1 6 app.c 4464 6\n");
}

TEST(Location, IsShownAsRecordedForBothSidesOfAResize) {
  Ledger ledger(Environment{"DEBUG=qk_irealloc", "DB", ""});
  const Memory memory(ledger.pool, "src/app.c", 70000);
  ledger.skip_all();
  void* now = qk_mem_irealloc(ledger.pool, memory.zeroed, 100, 16, "lib/other.c", 80000);
  EXPECT_EQ(ledger.log(), std::string("   qk_mem_irealloc:       3 [p1] R 100 other.c:14464; [") +
                              (now == memory.zeroed ? "p1" : "p2") + "] C 2/8 app.c:4464\n");
  EXPECT_EQ(ledger.trace(), "3 R [p1] 1 100 other.c 14464 84\n");
}

TEST(Location, IsShownInFullForAFree) {
  Ledger ledger(Environment{"DEBUG=qk_ifree", "DB", ""});
  const Memory memory(ledger.pool, "src/app.c", 70000);
  ledger.skip_all();
  qk_mem_ifree(ledger.pool, memory.zeroed, "lib/other.c", 80000);
  EXPECT_EQ(ledger.log(), "   qk_mem_ifree:          3 [p1] F other.c:80000; C 2/8 app.c:4464\n");
  EXPECT_EQ(ledger.trace(), "3 F [p1] 2 8 other.c 80000 -16\n");
}

TEST(Location, IsShownInFullInWarnings) {
  Ledger ledger("EXCEPTIONS");
  misuse_all(ledger.pool, "/home/user/src/app.c", 70000);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imalloc: WARNING: malloc of 0 at app.c:70000\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 num at app.c:70000\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 at app.c:70000\n"
            "   qk_mem_irealloc: WARNING: realloc of 0 at app.c:70000\n"
            "   qk_mem_istrdup: WARNING: strdup of NULL pointer at app.c:70000\n"
            "   qk_mem_ifree: WARNING: free of NULL pointer at app.c:70000\n");
}

TEST(Location, IsShownInFullInErrors) {
  Ledger ledger("EXCEPTIONS");
  kit::fail_all_requests();
  const Memory memory(ledger.pool, "/home/user/src/app.c", 70000);
  kit::let_succeed();
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_imalloc: ERROR: malloc of 8 at app.c:70000 failed: 12 Cannot allocate memory\n"
      "   qk_mem_icalloc: ERROR: calloc of 2/8 at app.c:70000 failed: 12 Cannot allocate memory\n"
      "   qk_mem_irealloc: ERROR: realloc of 8 at app.c:70000 failed: 12 Cannot allocate memory\n"
      "   qk_mem_istrdup: ERROR: strdup of 6 at app.c:70000 failed: 12 Cannot allocate memory\n");
}

TEST(Location, IsShownAsNullWithoutAFile) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  const Memory memory(ledger.pool, nullptr, 5);
  qk_mem_ifree(ledger.pool, memory.allocated, nullptr, 6);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imalloc:        3 [p1] M 8 (null):5\n"
            "   qk_mem_icalloc:        3 [p2] C 2/8 (null):5\n"
            "   qk_mem_irealloc:       3 [p3] R 8 (null):5; newly created\n"
            "   qk_mem_istrdup:        3 [p4] S 6 (null):5\n"
            "   qk_mem_ifree:          3 [p1] F (null):6; M 8 (null):5\n");
  EXPECT_EQ(ledger.trace(),
            "3 M [p1] 1 8 (null) 5 8\n"
            "3 C [p2] 2 8 (null) 5 16\n"
            "3 R [p3] 1 8 (null) 5 8\n"
            "3 S [p4] 1 6 (null) 5 6\n"
            "3 F [p1] 1 8 (null) 6 -8\n");
}

TEST(Location, IsShownAsNullInWarningsWithoutAFile) {
  Ledger ledger("EXCEPTIONS");
  misuse_all(ledger.pool, nullptr, 5);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imalloc: WARNING: malloc of 0 at (null):5\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 num at (null):5\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 at (null):5\n"
            "   qk_mem_irealloc: WARNING: realloc of 0 at (null):5\n"
            "   qk_mem_istrdup: WARNING: strdup of NULL pointer at (null):5\n"
            "   qk_mem_ifree: WARNING: free of NULL pointer at (null):5\n");
}

TEST(Location, IsShownAsNullInReportsWithoutAFile) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""});
  qk_mem_imalloc(ledger.pool, 8, 16, nullptr, 5);
  EXPECT_NE(
      kit::dump("", QK_MEM_DUMP_POINTERS).find(" M     1        8        8     101 (null):5\n"),
      std::string::npos);
}

}  // namespace
