#include <gtest/gtest.h>

#include "tests/kit/heap.h"
#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::report;
using kit::sections;
using kit::set_heap;
using kit::Stage;

TEST(Summary, AddsUpHandlesAndTags) {
  Stage stage(100000);
  hold(stage.handle(1, 'O'), 0x1010, 'M', 2, 50);
  qk_mem_handle& tagged = stage.handle(2, 'D', "AB");
  hold(tagged, 0x1020, 'M', 1, 300);
  hold(tagged, 0x1030, 'S', 1, 7);
  hold(stage.handle(3, 'D', "C"), 0x1040, 'H', 1, 500);
  hold(stage.handle(4), 0x1050, 'C', 4, 8);
  set_heap(200000);
  EXPECT_EQ(report("", QK_MEM_DUMP_SUMMARY),
            "   ----------------------------------------------------------------------------\n"
            "   Category         Qty        Amt\n"
            "   -------------------------------\n"
            "   Current:           4        439\n"
            "   Overhead:          1        100\n"
            "   Data:              3        339\n"
            "   Management:        6       4340\n"
            "   Initial:                 100000\n"
            "   Heap:                    200000\n"
            "   Untracked:                95221\n"
            "   Tags:\n"
            "     AB:              2        307\n"
            "      C:              0          0\n"
            "     NONE:            2        132\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(Summary, IsZeroWithoutHandles) {
  Stage stage;
  EXPECT_EQ(sections("", QK_MEM_DUMP_SUMMARY),
            "Tags\n"
            "     NONE:            0          0\n");
}

TEST(Summary, IgnoresTheFilter) {
  Stage stage;
  hold(stage.handle(1, 'O', "AB"), 0x1010, 'M', 1, 5);
  hold(stage.handle(2), 0x1020, 'M', 1, 7);
  EXPECT_EQ(sections("HANDLE=2 TAG=XY", QK_MEM_DUMP_SUMMARY),
            "Summary\n"
            "   Current:           2         12\n"
            "   Overhead:          1          5\n"
            "   Data:              1          7\n"
            "   Management:        2       1536\n"
            "   Untracked:                -1548\n"
            "Tags\n"
            "     AB:              1          5\n"
            "     NONE:            1          7\n");
}

TEST(Summary, CountsEveryTypeButOverheadAsData) {
  Stage stage;
  hold(stage.handle(1, 'Q'), 0x1010, 'M', 1, 5);
  EXPECT_EQ(sections("", QK_MEM_DUMP_SUMMARY),
            "Summary\n"
            "   Current:           1          5\n"
            "   Data:              1          5\n"
            "   Management:        1        768\n"
            "   Untracked:                 -773\n"
            "Tags\n"
            "     NONE:            1          5\n");
}

TEST(Summary, ShowsUntrackedMemoryBelowZero) {
  Stage stage(900);
  hold(stage.handle(1), 0x1010, 'X', 1, 1000);
  EXPECT_EQ(sections("", QK_MEM_DUMP_SUMMARY),
            "Summary\n"
            "   Current:           1       1000\n"
            "   Data:              1       1000\n"
            "   Management:        1        768\n"
            "   Initial:                    900\n"
            "   Heap:                       900\n"
            "   Untracked:                -1768\n"
            "Tags\n"
            "     NONE:            1       1000\n");
}

TEST(Summary, ListsTagsInTheOrderOfTheirFirstUse) {
  Stage stage;
  hold(stage.handle(5, 'D', "ZZ"), 0x1010, 'M', 1, 1);
  hold(stage.handle(1, 'O', "A"), 0x1010, 'M', 1, 2);
  hold(stage.handle(3, 'D', "ZZ"), 0x1010, 'M', 1, 4);
  stage.handle(2, 'D', "M9");
  EXPECT_EQ(sections("", QK_MEM_DUMP_SUMMARY),
            "Summary\n"
            "   Current:           3          7\n"
            "   Overhead:          1          2\n"
            "   Data:              2          5\n"
            "   Management:        3       2304\n"
            "   Untracked:                -2311\n"
            "Tags\n"
            "     ZZ:              2          5\n"
            "      A:              1          2\n"
            "     M9:              0          0\n"
            "     NONE:            0          0\n");
}

TEST(Summary, ShiftsColumnsForFiguresThatAreTooWide) {
  Stage stage(-2147483647);
  qk_mem_handle& handle = stage.handle(1, 'D', "AB");
  handle.qty = 4000000000;
  handle.amount = 20000000000;
  handle.tag->qty = 4000000001;
  handle.tag->amount = 10000000000;
  handle.overhead_qty = 4000000002;
  handle.overhead_amount = 30000000000;
  EXPECT_EQ(sections("", QK_MEM_DUMP_SUMMARY),
            "Summary\n"
            "   Current:    4000000000 20000000000\n"
            "   Data:       4000000000 20000000000\n"
            "   Management: 4000000002 30000000000\n"
            "   Initial:             -2147483647\n"
            "   Heap:                -2147483647\n"
            "   Untracked:           -50000000000\n"
            "Tags\n"
            "     AB:       4000000001 10000000000\n"
            "     NONE:            0          0\n");
}

TEST(Heapsize, IsOneLineIfThereIsNoSummary) {
  Stage stage(100000);
  set_heap(1234567);
  EXPECT_EQ(report("", QK_MEM_DUMP_HEAPSIZE),
            "Current heapsize:     1234567\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(Heapsize, IsPartOfTheSummaryAndNotRepeated) {
  Stage stage(100000);
  EXPECT_EQ(report("", QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HEAPSIZE),
            report("", QK_MEM_DUMP_SUMMARY));
}

TEST(Heapsize, CanBeShownBelowZero) {
  Stage stage;
  set_heap(-5);
  EXPECT_EQ(report("", QK_MEM_DUMP_HEAPSIZE),
            "Current heapsize:          -5\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(Heapsize, IsSampledOncePerReport) {
  Stage stage;
  set_heap(1000);
  (void)report("", QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_POINTERS);
  EXPECT_EQ(kit::heap_probes(), 1);
  (void)report("", QK_MEM_DUMP_COMPARISON);
  EXPECT_EQ(kit::heap_probes(), 2);
}

}  // namespace
