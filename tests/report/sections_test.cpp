#include <gtest/gtest.h>

#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::report;
using kit::sections;
using kit::Stage;

/** A handle of each type: the overhead handle has a pointer, the data handle a block. */
class Sections : public ::testing::Test {
 protected:
  Sections() {
    hold(stage_.handle(1, 'O'), 0x1010, 'M', 1, 40);
    hold(stage_.handle(2, 'D', "AB"), 0x1020, 'B', 1, 2048);
  }

 private:
  Stage stage_;
};

TEST_F(Sections, HaveNoRowsForSummaryAlone) {
  EXPECT_EQ(sections("", QK_MEM_DUMP_SUMMARY),
            "Summary\n"
            "   Current:           2       2088\n"
            "   Overhead:          1         40\n"
            "   Data:              1       2048\n"
            "   Management:        2       1536\n"
            "   Untracked:                -3624\n"
            "Tags\n"
            "     AB:              1       2048\n"
            "     NONE:            1         40\n");
}

TEST_F(Sections, AreOneLineAndTheRuleForHeapsizeAlone) {
  EXPECT_EQ(report("", QK_MEM_DUMP_HEAPSIZE),
            "Current heapsize:           0\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST_F(Sections, HaveNoRecordsForHandlesAlone) {
  EXPECT_EQ(sections("", QK_MEM_DUMP_HANDLES),
            "Overhead handles\n"
            "   +   1                           1                40       1 made.c:100\n"
            "Data handles\n"
            "   +   2 AB                        1              2048       4 made.c:200\n");
}

TEST_F(Sections, HaveNoHeadingsForManagementAlone) {
  EXPECT_EQ(report("", QK_MEM_DUMP_MGMT),
            "   - - - - - - - - - - - - - Overhead handle management  - - - - - - - - - - - \n"
            "   +   1    p1               P    16       48      768       2 app.c:1\n"
            "   - - - - - - - - - - - - - Data handle management  - - - - - - - - - - - - - \n"
            "   +   2 AB p2               P    16       48      768       5 app.c:1\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST_F(Sections, HaveNoOtherRecordsForBlocksAlone) {
  EXPECT_EQ(sections("", QK_MEM_DUMP_BLOCKS),
            "Data handle blocks\n"
            "   +   2 AB 0000000000001020 B     1     2048     2048       6 app.c:1\n");
}

TEST_F(Sections, HaveNoBlocksOrManagementForPointersAlone) {
  EXPECT_EQ(sections("", QK_MEM_DUMP_POINTERS),
            "Overhead handle pointers\n"
            "   +   1    0000000000001010 M     1       40       40       3 app.c:1\n");
}

TEST_F(Sections, AreTheTableForComparisonAlone) {
  EXPECT_EQ(sections("", QK_MEM_DUMP_COMPARISON),
            "Totals\n"
            "  |Data handles               |    0         0|    1      2048|   n/a      n/a|\n"
            "  |Overhead handles           |    0         0|    1        40|   n/a      n/a|\n"
            "  |Total of all handles       |    0         0|    2      2088|   n/a      n/a|\n"
            "  |Handle management          |    0         0|    2      1536|   n/a      n/a|\n"
            "  |Handles plus management    |    0         0|    4      3624|   n/a      n/a|\n"
            "  |Untracked memory usage     |               |          -3624|               |\n"
            "Tags\n"
            "  |  AB                       |    0         0|    1      2048|   n/a      n/a|\n"
            "  |  NONE                     |    0         0|    1        40|   n/a      n/a|\n"
            "Overhead handles\n"
            "  |   1       made.c:100      |    0         0|    1        40|   n/a      n/a|\n"
            "Data handles\n"
            "  |   2 AB    made.c:200      |    0         0|    1      2048|   n/a      n/a|\n");
}

TEST_F(Sections, AreTheClosingRuleForGrowthOrTerseAlone) {
  EXPECT_EQ(report("", QK_MEM_DUMP_GROWTH),
            "   ----------------------------------------------------------------------------\n");
  EXPECT_EQ(report("", QK_MEM_DUMP_TERSE),
            "   ----------------------------------------------------------------------------\n");
  EXPECT_EQ(report("", 0x200),
            "   ----------------------------------------------------------------------------\n");
}

TEST_F(Sections, StartWithHeapsizeIfThereIsNoSummary) {
  EXPECT_EQ(sections("", QK_MEM_DUMP_HEAPSIZE | QK_MEM_DUMP_POINTERS),
            "Current heapsize:           0\n"
            "Overhead handle pointers\n"
            "   +   1    0000000000001010 M     1       40       40       3 app.c:1\n");
}

TEST_F(Sections, ArePrintedInOrderWithoutComparison) {
  EXPECT_EQ(sections("", 0x1ff & ~static_cast<unsigned>(QK_MEM_DUMP_COMPARISON)),
            "Summary\n"
            "   Current:           2       2088\n"
            "   Overhead:          1         40\n"
            "   Data:              1       2048\n"
            "   Management:        2       1536\n"
            "   Untracked:                -3624\n"
            "Tags\n"
            "     AB:              1       2048\n"
            "     NONE:            1         40\n"
            "Overhead handles\n"
            "   +   1                           1                40       1 made.c:100\n"
            "Overhead handle management\n"
            "   +   1    p1               P    16       48      768       2 app.c:1\n"
            "Overhead handle pointers\n"
            "   +   1    0000000000001010 M     1       40       40       3 app.c:1\n"
            "Data handles\n"
            "   +   2 AB                        1              2048       4 made.c:200\n"
            "Data handle management\n"
            "   +   2 AB p2               P    16       48      768       5 app.c:1\n"
            "Data handle blocks\n"
            "   +   2 AB 0000000000001020 B     1     2048     2048       6 app.c:1\n");
}

TEST_F(Sections, AreTheComparisonIfAllAreRequested) {
  EXPECT_EQ(report("", 0x1ff), report("", QK_MEM_DUMP_COMPARISON));
}

}  // namespace
