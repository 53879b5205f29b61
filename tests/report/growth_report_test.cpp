#include <gtest/gtest.h>

#include "accounting/kept_calls.h"
#include "table/pointer_table.h"
#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::mark_baselined;
using kit::report;
using kit::sections;
using kit::Stage;

constexpr unsigned kGrowth = QK_MEM_DUMP_GROWTH;
constexpr unsigned kEverySection =
    QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_MGMT | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;
constexpr char kNoGrowth[] = "No memory growth since baseline\n";

/** A handle with a pointer, both covered by the baseline. */
qk_mem_handle& old_handle(Stage& stage, int id, char type = 'D') {
  qk_mem_handle& handle = stage.handle(id, type);
  hold(handle, 0x1000, 'M', 1, 10);
  mark_baselined(handle);
  return handle;
}

TEST(GrowthReport, SaysSoIfNothingIsNew) {
  Stage stage;
  old_handle(stage, 1);
  EXPECT_EQ(report("", kGrowth | kEverySection), kNoGrowth);
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_SUMMARY), kNoGrowth);
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_COMPARISON), kNoGrowth);
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_HEAPSIZE), kNoGrowth);
  EXPECT_EQ(report("", kGrowth), kNoGrowth);
}

TEST(GrowthReport, IsEmptyIfNothingIsNewAndItIsTerse) {
  Stage stage;
  old_handle(stage, 1);
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_TERSE), "");
  EXPECT_EQ(report("", 0x1ff), "");
}

TEST(GrowthReport, ShowsNoGrowthWithoutHandles) {
  Stage stage;
  EXPECT_EQ(report("", kGrowth | kEverySection), kNoGrowth);
}

TEST(GrowthReport, CountsANewHandleWithoutPointersAsGrowth) {
  Stage stage;
  old_handle(stage, 1, 'O');
  stage.handle(2);
  EXPECT_EQ(sections("", kGrowth | kEverySection),
            "Data handles\n"
            "   +   2                           0                 0       4 made.c:200\n");
}

TEST(GrowthReport, DoesNotCountManagementAsGrowth) {
  Stage stage;
  qk_mem_handle& handle = old_handle(stage, 1);
  hold(handle, 0x1010, 'H', 1, 100);
  hold(handle, 0x1020, 'T', 1, 16);
  EXPECT_EQ(report("", kGrowth | kEverySection), kNoGrowth);
  EXPECT_EQ(handle.has_growth, 0);
}

TEST(GrowthReport, CountsABlockAsGrowth) {
  Stage stage;
  qk_mem_handle& handle = old_handle(stage, 1);
  hold(handle, 0x1010, 'B', 1, 2048);
  EXPECT_EQ(sections("", kGrowth | kEverySection),
            "Data handle management\n"
            "   +   1    p1               P    16       48      768       4 app.c:1\n"
            "Data handle blocks\n"
            "   +   1    0000000000001010 B     1     2048     2048       5 app.c:1\n");
  EXPECT_EQ(handle.has_growth, 1);
}

TEST(GrowthReport, HasRowsOnlyOfWhatIsNew) {
  Stage stage;
  qk_mem_handle& overhead = old_handle(stage, 1, 'O');
  hold(overhead, 0x1100, 'M', 1, 11);
  old_handle(stage, 2);
  qk_mem_handle& grown = old_handle(stage, 3);
  hold(grown, 0x1100, 'M', 1, 12);
  hold(grown, 0x1010, 'W', 1, 13);
  hold(stage.handle(4), 0x1000, 'M', 1, 14);
  EXPECT_EQ(report("", kGrowth | kEverySection),
            "\n"
            "    Hndl Tg          Address Typ Qty     Size    Total     Seq Location\n"
            "   ----------------------------------------------------------------------------\n"
            "   - - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Overhead handle management  - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Overhead handle blocks  - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Overhead handle pointers  - - - - - - - - - - - - \n"
            "   +   1    0000000000001100 M     1       11       11       4 app.c:1\n"
            "   - - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - - \n"
            "   +   4                           1                14      14 made.c:400\n"
            "   - - - - - - - - - - - - - Data handle management  - - - - - - - - - - - - - \n"
            "   +   3    p1               P    16       48      768      12 app.c:1\n"
            "   +   4    p2               P    16       48      768      15 app.c:1\n"
            "   - - - - - - - - - - - - - Data handle blocks  - - - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Data handle pointers  - - - - - - - - - - - - - - \n"
            "   +   3    0000000000001100 M     1       12       12      11 app.c:1\n"
            "   +   3    0000000000001010 W     1       13       13      13 app.c:1\n"
            "   +   4    0000000000001000 M     1       14       14      16 app.c:1\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(GrowthReport, HasNoManagementOfHandlesWithoutNewPointers) {
  Stage stage;
  hold(stage.handle(1), 0x1000, 'H', 1, 100);
  qk_mem_handle& grown = old_handle(stage, 2);
  hold(grown, 0x1010, 'H', 1, 200);
  hold(grown, 0x1100, 'M', 1, 1);
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_MGMT),
            "   - - - - - - - - - - - - - Overhead handle management  - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Data handle management  - - - - - - - - - - - - - \n"
            "   +   2    p1               P    16       48      768       7 app.c:1\n"
            "   +   2    0000000000001010 H     1      200      200       8 app.c:1\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(GrowthReport, ShowsSummaryAndComparisonInFull) {
  Stage stage;
  old_handle(stage, 1);
  stage.handle(2);
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_SUMMARY), report("", QK_MEM_DUMP_SUMMARY));
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_COMPARISON), report("", QK_MEM_DUMP_COMPARISON));
}

TEST(GrowthReport, IsTheClosingRuleWithoutSections) {
  Stage stage;
  stage.handle(1);
  EXPECT_EQ(report("", kGrowth),
            "   ----------------------------------------------------------------------------\n");
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_TERSE),
            "   ----------------------------------------------------------------------------\n");
}

TEST(GrowthReport, LooksOnlyAtHandlesThatTheFilterKeeps) {
  Stage stage;
  old_handle(stage, 1, 'O');
  stage.handle(2);
  EXPECT_EQ(report("TYPE=OVERHEAD", kGrowth | kEverySection), kNoGrowth);
  EXPECT_EQ(report("NEW_HANDLE=FALSE", kGrowth | kEverySection), kNoGrowth);
}

TEST(GrowthReport, MarksHandlesThatHaveNewPointers) {
  Stage stage;
  qk_mem_handle& grown = old_handle(stage, 1);
  hold(grown, 0x1100, 'M', 1, 1);
  qk_mem_handle& same = old_handle(stage, 2);
  same.has_growth = 1;
  qk_mem_handle& empty = stage.handle(3);
  empty.has_growth = 1;
  (void)report("", kGrowth);
  EXPECT_EQ(grown.has_growth, 1);
  EXPECT_EQ(same.has_growth, 0);
  EXPECT_EQ(empty.has_growth, 0);
}

TEST(GrowthReport, KeepsTheMarksOfHandlesThatTheFilterExcludes) {
  Stage stage;
  qk_mem_handle& marked = old_handle(stage, 1);
  marked.has_growth = 1;
  qk_mem_handle& grown = old_handle(stage, 2);
  hold(grown, 0x1100, 'M', 1, 1);
  EXPECT_EQ(report("HANDLE=3", kGrowth), kNoGrowth);
  EXPECT_EQ(marked.has_growth, 1);
  EXPECT_EQ(grown.has_growth, 0);
}

TEST(GrowthReport, IsTheOnlyReportThatMarksHandles) {
  Stage stage;
  qk_mem_handle& grown = stage.handle(1);
  hold(grown, 0x1000, 'M', 1, 1);
  (void)report("", 0x3f);
  (void)report("", QK_MEM_DUMP_COMPARISON);
  EXPECT_EQ(grown.has_growth, 0);
}

TEST(GrowthReport, RestoresTheCallersFilterAfterEachSection) {
  Stage stage;
  qk_mem_handle& grown = old_handle(stage, 1);
  hold(grown, 0x1100, 'M', 1, 11);
  hold(stage.handle(2), 0x1000, 'M', 1, 12);
  // The growth report shows new handles although the filter excludes them. Rows of pointers obey
  // it.
  EXPECT_EQ(sections("NEW_HANDLE=FALSE", kGrowth | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Data handles\n"
            "   +   2                           1                12       5 made.c:200\n"
            "Data handle pointers\n"
            "   +   1    0000000000001100 M     1       11       11       4 app.c:1\n");
}

TEST(GrowthReport, ShowsNewHandlesIfOldPointersAreSelected) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  hold(handle, 0x1000, 'M', 1, 11);
  EXPECT_EQ(sections("NEW_PTRS=FALSE", kGrowth | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Data handles\n"
            "   +   1                           1                11       1 made.c:100\n");
  EXPECT_EQ(handle.has_growth, 0);
}

TEST(GrowthReport, NeedsEarlierMarksIfNewPointersAreSelected) {
  Stage stage;
  hold(stage.handle(1), 0x1000, 'M', 1, 11);
  EXPECT_EQ(report("NEW_PTRS=TRUE", kGrowth | QK_MEM_DUMP_POINTERS), kNoGrowth);
  (void)report("", kGrowth);
  EXPECT_EQ(sections("NEW_PTRS=TRUE", kGrowth | QK_MEM_DUMP_POINTERS),
            "Data handle pointers\n"
            "   +   1    0000000000001000 M     1       11       11       3 app.c:1\n");
}

TEST(GrowthReport, CountsAPointerAtAReusedAddressAsGrowth) {
  Stage stage;
  qk_mem_handle& handle = old_handle(stage, 1);
  qk_mem_free_ptr(&handle, qk_mem_get_ptr(&handle, reinterpret_cast<void*>(0x1000)));
  EXPECT_EQ(report("", kGrowth), kNoGrowth);
  hold(handle, 0x1000, 'M', 1, 11);
  EXPECT_EQ(sections("", kGrowth | QK_MEM_DUMP_POINTERS),
            "Data handle pointers\n"
            "   +   1    0000000000001000 M     1       11       11       4 app.c:1\n");
}

TEST(TerseReport, IsLikeAnyOtherWithoutGrowth) {
  Stage stage;
  old_handle(stage, 1);
  EXPECT_EQ(report("", QK_MEM_DUMP_TERSE),
            "   ----------------------------------------------------------------------------\n");
}

}  // namespace
