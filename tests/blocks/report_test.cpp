#include "tests/kit/report.h"

#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;

/** Pieces in two blocks of handle 3, made in events 101 to 105. */
class ReportOfBlocks : public ::testing::Test {
 protected:
  ReportOfBlocks()
      : ledger_(Environment{"EXCEPTIONS", "", ""},
                "BLOCKMGMT BLOCKFREE BLOCKSIZE=64 BLOCKINITIAL=0") {
    ledger_.pool.record().seq = 3;  // depends on the addresses of start-up's arrays
    qk_mem_imalloc(ledger_.pool, 40, 8, "src/app.c", 12);
    qk_mem_icalloc(ledger_.pool, 10, 10, 8, "src/words.c", 345);
    qk_mem_istrdup(ledger_.pool, "hello", "src/app.c", 14);
  }

  Ledger ledger_;
};

TEST_F(ReportOfBlocks, HasARowForEachBlock) {
  const std::string rows = kit::sections("HANDLE=3", QK_MEM_DUMP_BLOCKS);
  const std::string small = " B     1       96       96     101 app.c:12\n";
  const std::string big = " B     1      132      132     103 words.c:345\n";
  const std::string first = "Data handle blocks\n   +   3 AB p1              ";
  const std::string second = "   +   3 AB p2              ";
  // Which array a block's record is in depends on its address.
  const std::string either = first + small + second + big;
  const std::string other = first + big + second + small;
  EXPECT_TRUE(rows == either || rows == other) << rows;
}

TEST_F(ReportOfBlocks, MarksTheHandleAndChargesItForItsBlocks) {
  EXPECT_EQ(kit::sections("HANDLE=3", QK_MEM_DUMP_HANDLES),
            "Data handles\n"
            "   +   3 AB                  B     5               228       3 pool.c:7\n");
}

TEST_F(ReportOfBlocks, ListsPiecesAmongThePointers) {
  const std::string report = kit::report("HANDLE=3", QK_MEM_DUMP_POINTERS);
  EXPECT_NE(report.find(" m     1       40       40     102 app.c:12\n"), std::string::npos)
      << report;
  EXPECT_NE(report.find(" c    10       10      100     104 words.c:345\n"), std::string::npos);
  EXPECT_NE(report.find(" s     1        6        6     105 app.c:14\n"), std::string::npos);
  EXPECT_EQ(report.find(" B "), std::string::npos);
}

TEST_F(ReportOfBlocks, CountsBlocksAndPiecesAsData) {
  const std::string report = kit::report("HANDLE=3", QK_MEM_DUMP_SUMMARY);
  EXPECT_NE(report.find("   Data:              5        228\n"), std::string::npos) << report;
  EXPECT_NE(report.find("     AB:              5        228\n"), std::string::npos) << report;
}

TEST_F(ReportOfBlocks, SelectsHandlesByBlockManagement) {
  const char* const row =
      "   +   3 AB                  B     5               228       3 pool.c:7\n";
  EXPECT_NE(kit::report("BLOCKMGMT=TRUE", QK_MEM_DUMP_HANDLES).find(row), std::string::npos);
  EXPECT_EQ(kit::report("BLOCKMGMT=FALSE", QK_MEM_DUMP_HANDLES).find(row), std::string::npos);
}

TEST_F(ReportOfBlocks, ShowsTheBlocksAfterAClearToo) {
  qk_mem_iclear_handle(ledger_.pool, "src/app.c", 20);
  const std::string report =
      kit::report("HANDLE=3", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS);
  EXPECT_NE(
      report.find("   +   3 AB                  B     2               228       3 pool.c:7\n"),
      std::string::npos)
      << report;
  EXPECT_NE(report.find(" B     1       96       96     101 app.c:12\n"), std::string::npos);
  EXPECT_NE(report.find(" B     1      132      132     103 words.c:345\n"), std::string::npos);
  EXPECT_EQ(report.find("app.c:14"), std::string::npos);
}

}  // namespace
