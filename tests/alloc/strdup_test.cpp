#include <gtest/gtest.h>

#include <cstring>

#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;
using kit::Scene;

char* duplicate(int hid, const char* text) { return qk_mem_istrdup(hid, text, "src/app.c", 12); }

TEST(Strdup, CopiesTheStringAndCountsItsTerminator) {
  Ledger ledger("");
  const char original[] = "hello";
  char* copy = duplicate(ledger.pool, original);
  EXPECT_NE(copy, original);
  EXPECT_STREQ(copy, "hello");
  EXPECT_EQ(ledger.record(copy), "S 1/6 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 6, tag 1 for 6, events 1");
  qk_mem_ifree(ledger.pool, copy, "src/app.c", 13);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 2");
}

TEST(Strdup, CopiesAnEmptyStringAsOneByteWithoutAWarning) {
  Ledger ledger("EXCEPTIONS");
  char* copy = duplicate(ledger.pool, "");
  EXPECT_STREQ(copy, "");
  EXPECT_EQ(ledger.record(copy), "S 1/1 app.c:12 event 1");
  EXPECT_EQ(ledger.log(), "");
}

TEST(Strdup, IsLoggedAndTraced) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  duplicate(ledger.pool, "hello");
  EXPECT_EQ(ledger.log(), "   qk_mem_istrdup:        3 [p1] S 6 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 S [p1] 1 6 app.c 12 6\n");
}

TEST(Strdup, LogsTheHeapChangeUnderHeapsize) {
  Ledger ledger(Environment{"DEBUG", "HEAPSIZE", ""});
  duplicate(ledger.pool, "hello");
  EXPECT_EQ(ledger.log(), "   qk_mem_istrdup:        3 [p1] S 6 app.c:12 (heap change)\n");
}

TEST(Strdup, IsTracedEvenIfNothingIsLogged) {
  Ledger ledger(Environment{"EXCEPTIONS=qk_ifree", "DB", ""});
  duplicate(ledger.pool, "hello");
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.trace(), "3 S [p1] 1 6 app.c 12 6\n");
}

TEST(Strdup, WarnsOfNullAndReturnsNull) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  EXPECT_EQ(duplicate(ledger.pool, nullptr), nullptr);
  EXPECT_EQ(ledger.log(), "   qk_mem_istrdup: WARNING: strdup of NULL pointer at app.c:12\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Strdup, ReturnsNullForNullEvenWithoutWarnings) {
  Ledger ledger("");
  EXPECT_EQ(duplicate(ledger.pool, nullptr), nullptr);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Strdup, ReturnsNullWithTheSystemsCodeOnFailure) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  kit::fail_request(1);
  EXPECT_EQ(duplicate(ledger.pool, "hello"), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_istrdup: ERROR: strdup of 6 at app.c:12 failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Strdup, IsFollowedByTheReportUnderCtrlblks) {
  Ledger ledger(Environment{"CTRLBLKS=qk_istrdup", "", "OPTIONS=POINTERS"});
  duplicate(ledger.pool, "hello");
  EXPECT_EQ(kit::sections_of(ledger.log(), QK_MEM_DUMP_POINTERS),
            "Data handle pointers\n"
            "   +   3 AB p1               S     1        6        6     101 app.c:12\n");
}

TEST(Strdup, PrintsNoReportForNullOrOnFailure) {
  Ledger ledger("CTRLBLKS");
  EXPECT_EQ(duplicate(ledger.pool, nullptr), nullptr);
  kit::fail_request(1);
  EXPECT_EQ(duplicate(ledger.pool, "hello"), nullptr);
  EXPECT_EQ(ledger.log(), "");
}

TEST(Strdup, RecordsOnTheDataHandleOnceAnythingIsConfigured) {
  Scene scene(Environment{"EXCEPTIONS=qk_ifree", "DB", ""});
  qk_mem_init();
  kit::make_arrays(QK_MEM_DATA_HANDLE);
  scene.skip_trace();
  duplicate(QK_MEM_DATA_HANDLE, "hello");
  EXPECT_EQ(kit::data_of(QK_MEM_DATA_HANDLE), "1 for 6");
  EXPECT_EQ(kit::tag_of(""), "1 for 6");
  EXPECT_EQ(scene.trace(), "2 S [p1] 1 6 app.c 12 6\n");
}

}  // namespace
