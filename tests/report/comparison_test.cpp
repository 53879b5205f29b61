#include <gtest/gtest.h>

#include "core/registry.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::report;
using kit::sections;
using kit::set_heap;
using kit::Stage;

/** The sums of a handle at a baseline. */
struct Base {
  std::uint32_t qty;
  std::uint64_t amount;
  std::uint32_t overhead_qty = 0;
  std::uint64_t overhead_amount = 0;
};

void set_base(qk_mem_handle& handle, const Base& base) {
  handle.base_qty = base.qty;
  handle.base_amount = base.amount;
  handle.base_overhead_qty = base.overhead_qty;
  handle.base_overhead_amount = base.overhead_amount;
}

TEST(Comparison, IsATableOfZerosWithoutHandles) {
  Stage stage;
  EXPECT_EQ(sections("", QK_MEM_DUMP_COMPARISON),
            "Tags\n"
            "  |  NONE                     |    0         0|    0         0|   n/a      n/a|\n");
}

TEST(Comparison, SetsBaselineCurrentStateAndGrowthSideBySide) {
  Stage stage(100000);
  qk_mem_handle& overhead = stage.handle(1, 'O');
  hold(overhead, 0x1010, 'M', 1, 1200);
  set_base(overhead, {1, 1000, 1, 768});
  qk_mem_handle& tagged = stage.handle(2, 'D', "AB");
  hold(tagged, 0x1020, 'M', 1, 1000);
  hold(tagged, 0x1030, 'M', 1, 50);
  set_base(tagged, {3, 1000, 1, 1000});
  tagged.tag->base_qty = 3;
  tagged.tag->base_amount = 1000;
  hold(stage.handle(3), 0x1040, 'M', 2, 8);
  Qk_mem_global_tag.base_qty = 1;
  Qk_mem_global_tag.base_amount = 1000;
  Qk_mem_base_heap = 150000;
  set_heap(180000);
  EXPECT_EQ(report("", QK_MEM_DUMP_COMPARISON),
            "  -----------------------------------------------------------------------------\n"
            "  |                           |    BASELINE   |    CURRENT    |     GROWTH    |\n"
            "  | Description               |  Qty       Amt|  Qty       Amt|   Pct      Amt|\n"
            "  |---------------------------------------------------------------------------|\n"
            "  |Data handles               |    3      1000|    3      1066| 6.60%       66|\n"
            "  |Overhead handles           |    1      1000|    1      1200|   20%      200|\n"
            "  |Total of all handles       |    4      2000|    4      2266|   13%      266|\n"
            "  |Handle management          |    2      1768|    4      3072|   74%     1304|\n"
            "  |Handles plus management    |    8      3768|    8      5338|   42%     1570|\n"
            "  |Current heap               |         150000|         180000|   20%    30000|\n"
            "  |Initial heap               |               |         100000|               |\n"
            "  |Untracked memory usage     |               |          74662|               |\n"
            "  |---------------------------------------------------------------------------|\n"
            "  |Tags:                      |               |               |               |\n"
            "  |  AB                       |    3      1000|    2      1050| 5.00%       50|\n"
            "  |  NONE                     |    1      1000|    2      1216|   22%      216|\n"
            "  |---------------------------------------------------------------------------|\n"
            "  |Hndl Tg Tp Created         |               |               |               |\n"
            "  |- - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - -|\n"
            "  |   1       made.c:100      |    1      1000|    1      1200|   20%      200|\n"
            "  |- - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - -|\n"
            "  |   2 AB    made.c:200      |    3      1000|    2      1050| 5.00%       50|\n"
            "  |   3       made.c:300      |    0         0|    1        16|   n/a      n/a|\n"
            "  -----------------------------------------------------------------------------\n");
}

TEST(Comparison, ReplacesEverythingElse) {
  Stage stage;
  stage.handle(1);
  EXPECT_EQ(report("", 0x7f), report("", QK_MEM_DUMP_COMPARISON));
}

TEST(Comparison, SumsOnlyWhatTheFilterKeeps) {
  Stage stage(100);
  for (const int id : {1, 2}) {
    qk_mem_handle& handle = stage.handle(id, id == 1 ? 'O' : 'D', id == 1 ? "AB" : "C");
    hold(handle, 0x1010, 'M', 1, 1000);
    set_base(handle, {1, 500, 1, 768});
  }
  hold(stage.handle(3), 0x1010, 'M', 1, 3000);
  EXPECT_EQ(sections("TAG=AB", QK_MEM_DUMP_COMPARISON),
            "Totals\n"
            "  |Overhead handles           |    1       500|    1      1000|  100%      500|\n"
            "  |Total of all handles       |    1       500|    1      1000|  100%      500|\n"
            "  |Handle management          |    1       768|    1       768| 0.00%        0|\n"
            "  |Handles plus management    |    2      1268|    2      1768|   39%      500|\n"
            "  |Current heap               |              0|            100|   n/a      n/a|\n"
            "  |Initial heap               |               |            100|               |\n"
            "  |Untracked memory usage     |               |          -1768|               |\n"
            "Tags\n"
            "  |  AB                       |    0         0|    1      1000|   n/a      n/a|\n"
            "Overhead handles\n"
            "  |   1 AB    made.c:100      |    1       500|    1      1000|  100%      500|\n");
}

TEST(Comparison, HasOnlyTheGlobalTagForUntaggedHandles) {
  Stage stage;
  hold(stage.handle(1, 'O', "AB"), 0x1010, 'M', 1, 1000);
  hold(stage.handle(2), 0x1010, 'M', 1, 2000);
  EXPECT_EQ(sections("TAG=NONE", QK_MEM_DUMP_COMPARISON),
            "Totals\n"
            "  |Data handles               |    0         0|    1      2000|   n/a      n/a|\n"
            "  |Total of all handles       |    0         0|    1      2000|   n/a      n/a|\n"
            "  |Handle management          |    0         0|    1       768|   n/a      n/a|\n"
            "  |Handles plus management    |    0         0|    2      2768|   n/a      n/a|\n"
            "  |Untracked memory usage     |               |          -2768|               |\n"
            "Tags\n"
            "  |  NONE                     |    0         0|    1      2000|   n/a      n/a|\n"
            "Data handles\n"
            "  |   2       made.c:200      |    0         0|    1      2000|   n/a      n/a|\n");
}

TEST(Comparison, CountsOtherTypesAsDataButDoesNotListThem) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1, 'Q');
  hold(handle, 0x1010, 'M', 1, 1000);
  set_base(handle, {2, 800});
  EXPECT_EQ(sections("", QK_MEM_DUMP_COMPARISON),
            "Totals\n"
            "  |Data handles               |    2       800|    1      1000|   25%      200|\n"
            "  |Total of all handles       |    2       800|    1      1000|   25%      200|\n"
            "  |Handle management          |    0         0|    1       768|   n/a      n/a|\n"
            "  |Handles plus management    |    4       800|    2      1768|  121%      968|\n"
            "  |Untracked memory usage     |               |          -1768|               |\n"
            "Tags\n"
            "  |  NONE                     |    0         0|    1      1000|   n/a      n/a|\n");
}

TEST(Comparison, AddsQuantitiesIn32BitsAndAmountsIn64) {
  Stage stage;
  for (const int id : {1, 2}) {
    qk_mem_handle& handle = stage.handle(id);
    handle.qty = 2147483649;
    handle.amount = 400000000;
    set_base(handle, {1073741825, 300000000, 2147483650, 5000000000});
    handle.overhead_qty = 2147483651;
    handle.overhead_amount = 5000000000;
  }
  EXPECT_EQ(
      sections("HANDLE=1", QK_MEM_DUMP_COMPARISON),
      "Totals\n"
      "  |Data handles               |1073741825 300000000|2147483649 400000000|   33%100000000|\n"
      "  |Total of all handles       |1073741825 300000000|2147483649 400000000|   33%100000000|\n"
      "  |Handle management          |2147483650 5000000000|2147483651 5000000000| 0.00%        0|\n"
      "  |Handles plus management    |2147483650 5300000000|    4 5400000000| 1.89%100000000|\n"
      "  |Untracked memory usage     |               |     -5400000000|               |\n"
      "Tags\n"
      "  |  NONE                     |    0         0|    0         0|   n/a      n/a|\n"
      "Data handles\n"
      "  |   1       made.c:100      |1073741825 300000000|2147483649 400000000|   33%100000000|\n");
  EXPECT_EQ(
      sections("", QK_MEM_DUMP_COMPARISON),
      "Totals\n"
      "  |Data handles               |2147483650 600000000|    2 800000000|   33%200000000|\n"
      "  |Total of all handles       |2147483650 600000000|    2 800000000|   33%200000000|\n"
      "  |Handle management          |    4 10000000000|    6 10000000000| 0.00%        0|\n"
      "  |Handles plus management    |    4 10600000000|    8 10800000000| 1.89%200000000|\n"
      "  |Untracked memory usage     |               |     -10800000000|               |\n"
      "Tags\n"
      "  |  NONE                     |    0         0|    0         0|   n/a      n/a|\n"
      "Data handles\n"
      "  |   1       made.c:100      |1073741825 300000000|2147483649 400000000|   33%100000000|\n"
      "  |   2       made.c:200      |1073741825 300000000|2147483649 400000000|   33%100000000|\n");
}

}  // namespace
