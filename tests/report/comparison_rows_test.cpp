#include <gtest/gtest.h>

#include "core/registry.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::sections;
using kit::set_heap;
using kit::Stage;

TEST(ComparisonRows, CutADecreaseAt15Characters) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1, 'D', "AB");
  hold(handle, 0x1010, 'M', 1, 900);
  handle.base_qty = 1;
  handle.base_amount = 1000;
  handle.base_overhead_qty = 2;
  handle.base_overhead_amount = 1000;
  handle.tag->base_amount = 1000;
  Qk_mem_base_heap = 5000;
  set_heap(4950);
  EXPECT_EQ(sections("", QK_MEM_DUMP_COMPARISON),
            "Totals\n"
            "  |Data handles               |    1      1000|    1       900|-10.00%18446744|\n"
            "  |Total of all handles       |    1      1000|    1       900|-10.00%18446744|\n"
            "  |Handle management          |    2      1000|    1       768|-23.20%18446744|\n"
            "  |Handles plus management    |    2      2000|    2      1668|-16.60%18446744|\n"
            "  |Current heap               |           5000|           4950|-1.00%184467440|\n"
            "  |Untracked memory usage     |               |           3282|               |\n"
            "Tags\n"
            "  |  AB                       |    0      1000|    1       900|-10.00%18446744|\n"
            "  |  NONE                     |    0         0|    0         0|   n/a      n/a|\n"
            "Data handles\n"
            "  |   1 AB    made.c:100      |    1      1000|    1       900|-10.00%18446744|\n");
}

TEST(ComparisonRows, MarkAutofreeHandlesOfBothTypesWithACapital) {
  Stage stage;
  stage.handle(1, 'O').autofree = 'a';
  stage.handle(2).autofree = 'a';
  stage.handle(3, 'O', "A").blockmgmt = 'B';
  qk_mem_handle& both = stage.handle(4, 'D', "AB");
  both.autofree = 'a';
  both.blockmgmt = 'B';
  EXPECT_EQ(sections("", QK_MEM_DUMP_COMPARISON),
            "Tags\n"
            "  |   A                       |    0         0|    0         0|   n/a      n/a|\n"
            "  |  AB                       |    0         0|    0         0|   n/a      n/a|\n"
            "  |  NONE                     |    0         0|    0         0|   n/a      n/a|\n"
            "Overhead handles\n"
            "  |   1     A made.c:100      |    0         0|    0         0|   n/a      n/a|\n"
            "  |   3  A B  made.c:300      |    0         0|    0         0|   n/a      n/a|\n"
            "Data handles\n"
            "  |   2     A made.c:200      |    0         0|    0         0|   n/a      n/a|\n"
            "  |   4 AB BA made.c:400      |    0         0|    0         0|   n/a      n/a|\n");
}

TEST(ComparisonRows, CutLocationsAt16Characters) {
  Stage stage;
  stage.handle(1).file = "abcdefgh.cpp";
  stage.handle(2).file = "abcdefghi.cpp";
  stage.handle(3).file = "abcdefghijkl.cpp";
  stage.handle(4).line = 65537;
  EXPECT_EQ(sections("TYPE=DATA", QK_MEM_DUMP_COMPARISON),
            "Tags\n"
            "  |  NONE                     |    0         0|    0         0|   n/a      n/a|\n"
            "Data handles\n"
            "  |   1       abcdefgh.cpp:100|    0         0|    0         0|   n/a      n/a|\n"
            "  |   2       abcdefghi.cpp:20|    0         0|    0         0|   n/a      n/a|\n"
            "  |   3       abcdefghijkl.cpp|    0         0|    0         0|   n/a      n/a|\n"
            "  |   4       made.c:65537    |    0         0|    0         0|   n/a      n/a|\n");
}

TEST(ComparisonRows, ShowOnlyTheGlobalTagsQuantityAsUnsigned) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1, 'O', "AB");
  handle.tag->qty = 4294967295;
  handle.tag->base_qty = 4294967294;
  Qk_mem_global_tag.qty = 4294967295;
  EXPECT_EQ(sections("", QK_MEM_DUMP_COMPARISON),
            "Tags\n"
            "  |  AB                       |4294967294         0|   -1         0|   n/a      n/a|\n"
            "  |  NONE                     |    0         0|4294967295         0|   n/a      n/a|\n"
            "Overhead handles\n"
            "  |   1 AB    made.c:100      |    0         0|    0         0|   n/a      n/a|\n");
}

}  // namespace
