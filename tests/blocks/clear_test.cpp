#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <typeinfo>

#include "core/registry.h"
#include "table/pointer_table.h"
#include "tests/kit/blocks.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::blocks_of;
using kit::Environment;
using kit::Ledger;
using kit::Pool;
using kit::position_of;
using kit::Scene;

int clear(int hid) { return qk_mem_iclear_handle(hid, "lib/other.c", 80000); }

void* allocate(int hid, std::size_t size, int alignment = 1) {
  return qk_mem_imalloc(hid, size, alignment, "src/app.c", 12);
}

constexpr const char* kPlain = "BLOCKMGMT BLOCKSIZE=64";
constexpr const char* kFreeing = "BLOCKMGMT BLOCKFREE BLOCKSIZE=64";

TEST(ClearHandle, EmptiesItsBlocksAndKeepsThem) {
  Ledger ledger(Environment{"", "", ""}, kPlain);
  for (const std::size_t size : {40, 50, 100, 60}) allocate(ledger.pool, size);
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-60 100:0-100 64:0-50 64:0-40");
  EXPECT_EQ(clear(ledger.pool), 0);
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-0 100:0-0 64:0-0 64:0-0");
  EXPECT_EQ(ledger.sums(), "handle 0 for 420, tag 0 for 420, events 1");
  EXPECT_EQ(ledger.pool.record().num_blocks, 4U);
  EXPECT_EQ(ledger.pool.record().block_used, 250U);
}

TEST(ClearHandle, LetsBlocksBeFilledAgainFromTheFirst) {
  Scene scene;
  Pool pool(kPlain);
  for (const std::size_t size : {40, 50, 100, 60}) allocate(pool, size);
  for (int round = 0; round < 3; ++round) {
    clear(pool);
    EXPECT_EQ(position_of(pool, allocate(pool, 60)), "block 1 at 0");
    EXPECT_EQ(position_of(pool, allocate(pool, 60)), "block 2 at 0");
    EXPECT_EQ(position_of(pool, allocate(pool, 60)), "block 3 at 0");
    EXPECT_EQ(position_of(pool, allocate(pool, 60)), "block 4 at 0");
    EXPECT_EQ(position_of(pool, allocate(pool, 40)), "block 2 at 60");
    EXPECT_EQ(position_of(pool, allocate(pool, 4)), "block 1 at 60");
    EXPECT_EQ(blocks_of(pool), "64:0-64 100:0-100 64:0-60 64:0-60");
  }
  EXPECT_EQ(pool.record().num_blocks, 4U);
}

TEST(ClearHandle, SucceedsWithoutBlocks) {
  Scene scene;
  Pool pool("BLOCKMGMT BLOCKINITIAL=0");
  EXPECT_EQ(clear(pool), 0);
  EXPECT_EQ(blocks_of(pool), "");
}

TEST(ClearHandle, ResetsTheLowMarksToo) {
  Scene scene;
  Pool pool(kFreeing);
  void* first = allocate(pool, 10);
  allocate(pool, 10);
  qk_mem_ifree(pool, first, "lib/other.c", 1);
  EXPECT_EQ(blocks_of(pool), "64:10-20");
  clear(pool);
  EXPECT_EQ(blocks_of(pool), "64:0-0");
}

TEST(ClearHandle, RemovesTheRecordsOfItsPieces) {
  Ledger ledger(Environment{"", "", ""}, kFreeing);
  void* pieces[] = {allocate(ledger.pool, 10),
                    qk_mem_icalloc(ledger.pool, 2, 5, 8, "src/app.c", 12),
                    qk_mem_irealloc(ledger.pool, nullptr, 10, 8, "src/app.c", 12),
                    qk_mem_istrdup(ledger.pool, "text", "src/app.c", 12)};
  EXPECT_EQ(ledger.sums(), "handle 4 for 96, tag 4 for 96, events 4");
  EXPECT_EQ(clear(ledger.pool), 0);
  EXPECT_EQ(ledger.sums(), "handle 0 for 96, tag 0 for 96, events 5");
  for (const void* piece : pieces) EXPECT_EQ(ledger.record(piece), "none");
}

TEST(ClearHandle, RefusesAnOrdinaryHandle) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""});
  void* memory = allocate(ledger.pool, 10);
  ledger.skip_all();
  EXPECT_EQ(clear(ledger.pool), 5566);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_iclear_handle: ERROR: clear_handle on handle 3 with non-blockmgmt at other.c:80000\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_NE(ledger.record(memory), "none");
  EXPECT_EQ(Qk_mem_seq, 100U);
}

TEST(ClearHandle, ReportsAnOrdinaryHandleAsConfigured) {
  struct {
    const char* debug;
    bool reported;
  } const rows[] = {
      {"DEBUG=qk_mem_iclear_handle", true},
      {"EXCEPTIONS=qk_mem_iclear_handle", true},
      {"EXCEPTIONS TRACE=not,qk_mem_iclear_handle", true},
      {"DEBUG=not,qk_mem_iclear_handle", false},
      {"TRACE CTRLBLKS SUMMARY", false},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    EXPECT_EQ(clear(2), 5566);
    EXPECT_EQ(
        ledger.log(),
        row.reported
            ? "   qk_mem_iclear_handle: ERROR: clear_handle on handle 2 with non-blockmgmt at other.c:80000\n"
            : "")
        << row.debug;
  }
}

TEST(ClearHandle, RefusesAnInvalidHandle) {
  Scene scene("DEBUG");
  qk_mem_init();
  scene.skip_log();
  for (const int hid : {0, -1, 3, INT_MAX}) {
    Qk_mem_error = 0;
    EXPECT_EQ(clear(hid), 5566) << hid;
    EXPECT_EQ(qk_mem_error(), 5566) << hid;
  }
  EXPECT_EQ(scene.log(),
            "   qk_mem_iclear_handle: ERROR: invalid hid 0 at other.c:80000\n"
            "   qk_mem_iclear_handle: ERROR: invalid hid -1 at other.c:80000\n"
            "   qk_mem_iclear_handle: ERROR: invalid hid 3 at other.c:80000\n"
            "   qk_mem_iclear_handle: ERROR: invalid hid 2147483647 at other.c:80000\n");
}

TEST(ClearHandle, CountsOneEventHoweverMuchItReleases) {
  Ledger ledger(Environment{"DEBUG=qk_mem_iclear_handle", "HEAPSIZE DB", ""}, kPlain);
  allocate(ledger.pool, 10);
  allocate(ledger.pool, 20);
  ledger.skip_all();
  clear(ledger.pool);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iclear_handle:    3 [p1] f other.c:80000; m 10 app.c:12 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p2] f other.c:80000; m 20 app.c:12 (heap change)\n"
            "   qk_mem_iclear_handle:    3 d other.c:80000; pool.c:7 (heap change)\n");
  EXPECT_EQ(ledger.trace(),
            "3 f [p1] 1 10 other.c 80000 0\n"
            "3 f [p2] 1 20 other.c 80000 0\n"
            "3 d [p0] 0 0 other.c 80000 0\n");
  EXPECT_EQ(Qk_mem_seq, 101U);
}

TEST(ClearHandle, IsTracedEvenIfNothingIsLogged) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, kFreeing);
  allocate(ledger.pool, 10);
  ledger.skip_all();
  clear(ledger.pool);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.trace(),
            "3 f [p1] 1 10 other.c 80000 0\n"
            "3 d [p0] 0 0 other.c 80000 0\n");
}

TEST(ClearHandle, IsFollowedByTheReportOnceUnderCtrlblks) {
  Ledger ledger(Environment{"CTRLBLKS=qk_mem_iclear_handle", "", "OPTIONS=POINTERS,BLOCKS"},
                kFreeing);
  allocate(ledger.pool, 10);
  allocate(ledger.pool, 10);
  ledger.skip_all();
  clear(ledger.pool);
  EXPECT_NE(ledger.log(), "");
  EXPECT_EQ(ledger.log(), kit::normalized(kit::dump("", 0)));
}

TEST(ClearHandle, TakesItsLocationFromTheMacro) {
  Ledger ledger(Environment{"DEBUG=qk_mem_iclear_handle", "", ""}, kPlain);
  EXPECT_EQ(qk_mem_clear_handle(ledger.pool), 0);
  const std::string line = std::to_string(__LINE__ - 1);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iclear_handle:    3 d clear_test.cpp:" + line + "; pool.c:7\n");
}

TEST(ClearHandle, ReleasesTheHandlesMutex) {
  Scene scene;
  Pool pool("BLOCKMGMT MULTITHREADED BLOCKFREE");
  allocate(pool, 10);
  EXPECT_EQ(clear(pool), 0);
  EXPECT_FALSE(pool.record().mtx->held());
}

}  // namespace
