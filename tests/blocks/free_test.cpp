#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <string>

#include "core/registry.h"
#include "table/blocks.h"
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

void* allocate(int hid, std::size_t size, int alignment = 1) {
  return qk_mem_imalloc(hid, size, alignment, "src/app.c", 12);
}

void release(int hid, void* piece) { qk_mem_ifree(hid, piece, "lib/other.c", 80000); }

/** A handle that frees pieces one by one, in blocks of 64 bytes. */
constexpr const char* kFreeing = "BLOCKMGMT BLOCKFREE BLOCKSIZE=64";

TEST(FreeingAPiece, LowersTheHighMarkIfItIsTheLast) {
  Scene scene;
  Pool pool(kFreeing);
  allocate(pool, 10);
  allocate(pool, 20);
  void* last = allocate(pool, 30);
  EXPECT_EQ(blocks_of(pool), "64:0-60");
  release(pool, last);
  EXPECT_EQ(blocks_of(pool), "64:0-30");
  EXPECT_EQ(allocate(pool, 34), last);
  EXPECT_EQ(blocks_of(pool), "64:0-64");
}

TEST(FreeingAPiece, RaisesTheLowMarkIfItIsTheFirst) {
  Scene scene;
  Pool pool(kFreeing);
  void* first = allocate(pool, 10);
  allocate(pool, 20);
  allocate(pool, 30);
  release(pool, first);
  EXPECT_EQ(blocks_of(pool), "64:10-60");
  EXPECT_EQ(allocate(pool, 10), first);
  EXPECT_EQ(blocks_of(pool), "64:0-60");
}

TEST(FreeingAPiece, DoesNotRecoverRoomInTheMiddle) {
  Scene scene;
  Pool pool(kFreeing);
  void* first = allocate(pool, 10);
  void* middle = allocate(pool, 20);
  void* last = allocate(pool, 30);
  release(pool, middle);
  EXPECT_EQ(blocks_of(pool), "64:0-60");
  release(pool, last);
  EXPECT_EQ(blocks_of(pool), "64:0-30") << "the room of the middle one is not recovered";
  release(pool, first);
  EXPECT_EQ(blocks_of(pool), "64:10-30");
  EXPECT_EQ(position_of(pool, allocate(pool, 34)), "block 1 at 30");
  EXPECT_EQ(position_of(pool, allocate(pool, 8)), "block 1 at 2");
}

TEST(FreeingAPiece, EmptiesTheBlockIfItIsTheOnlyOne) {
  Scene scene;
  Pool pool(kFreeing);
  void* first = allocate(pool, 10);
  void* second = allocate(pool, 20);
  release(pool, first);
  EXPECT_EQ(blocks_of(pool), "64:10-30");
  release(pool, second);
  EXPECT_EQ(blocks_of(pool), "64:0-0");
  first = allocate(pool, 10);
  second = allocate(pool, 20);
  release(pool, second);
  EXPECT_EQ(blocks_of(pool), "64:0-10");
  release(pool, first);
  EXPECT_EQ(blocks_of(pool), "64:0-0");
}

TEST(FreeingAPiece, DoesNotRecoverItsPadding) {
  Scene scene;
  Pool pool(kFreeing);
  void* first = allocate(pool, 3);
  void* second = allocate(pool, 8, 8);
  EXPECT_EQ(blocks_of(pool), "64:0-16");
  release(pool, second);
  EXPECT_EQ(blocks_of(pool), "64:0-8");
  release(pool, first);
  EXPECT_EQ(blocks_of(pool), "64:3-8");
}

TEST(FreeingAPiece, RaisesTheLowMarkIfItWasPlacedBelowTheRest) {
  Scene scene;
  Pool pool(kFreeing);
  void* first = allocate(pool, 30);
  allocate(pool, 30);
  release(pool, first);
  void* below = allocate(pool, 9, 4);
  EXPECT_EQ(blocks_of(pool), "64:20-60");
  release(pool, below);
  EXPECT_EQ(blocks_of(pool), "64:29-60") << "one byte of padding stays";
}

TEST(FreeingAPiece, ChangesItsOwnBlockOnly) {
  Scene scene;
  Pool pool(kFreeing);
  void* old = allocate(pool, 40);
  void* big = allocate(pool, 100);
  void* head = allocate(pool, 50);
  EXPECT_EQ(blocks_of(pool), "64:0-50 100:0-100 64:0-40");
  release(pool, big);
  EXPECT_EQ(blocks_of(pool), "64:0-50 100:0-0 64:0-40");
  release(pool, old);
  EXPECT_EQ(blocks_of(pool), "64:0-50 100:0-0 64:0-0");
  release(pool, head);
  EXPECT_EQ(blocks_of(pool), "64:0-0 100:0-0 64:0-0");
}

TEST(FreeingAPiece, KeepsTheMarksIfItHasNoBytes) {
  Scene scene;
  Pool pool(kFreeing);
  allocate(pool, 10);
  void* none = allocate(pool, 0);
  EXPECT_EQ(position_of(pool, none), "block 1 at 10");
  release(pool, none);
  EXPECT_EQ(blocks_of(pool), "64:0-10");
}

TEST(FreeingAPiece, LowersQuantitiesButNoSumOfBytes) {
  Ledger ledger(Environment{"", "", ""}, kFreeing);
  const std::string before = ledger.sums();
  EXPECT_EQ(before, "handle 0 for 96, tag 0 for 96, events 0");
  void* piece = allocate(ledger.pool, 10, 8);
  EXPECT_EQ(ledger.record(piece), "m 1/10 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 96, tag 1 for 96, events 1");
  EXPECT_EQ(ledger.pool.record().block_used, 10U);
  release(ledger.pool, piece);
  EXPECT_EQ(ledger.record(piece), "none");
  EXPECT_EQ(ledger.sums(), "handle 0 for 96, tag 0 for 96, events 2");
  EXPECT_EQ(ledger.pool.record().block_used, 10U) << "it only grows";
  allocate(ledger.pool, 7, 8);
  EXPECT_EQ(ledger.pool.record().block_used, 17U);
}

TEST(FreeingAPiece, ChangesNothingWithoutBlockfree) {
  Ledger ledger(Environment{"", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  void* piece = allocate(ledger.pool, 10);
  EXPECT_EQ(ledger.record(piece), "none");
  release(ledger.pool, piece);
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
  EXPECT_EQ(ledger.sums(), "handle 0 for 96, tag 0 for 96, events 0");
}

TEST(FreeingAPiece, WarnsAndKeepsItsRecordWithoutBlockfree) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  void* piece = allocate(ledger.pool, 10);
  const std::string before = ledger.sums();
  EXPECT_EQ(ledger.record(piece), "m 1/10 app.c:12 event 1");
  ledger.skip_all();
  release(ledger.pool, piece);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING: free on handle 3 with blockmgmt at other.c:80000\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_NE(ledger.record(piece), "none");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
  EXPECT_EQ(Qk_mem_seq, 100U);
}

TEST(FreeingAPiece, WarnsWithoutBlockfreeEvenIfNothingIsRecorded) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, "BLOCKMGMT BLOCKSIZE=64");
  release(ledger.pool, allocate(ledger.pool, 10));
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80000\n"
            "   qk_mem_ifree: WARNING: free on handle 3 with blockmgmt at other.c:80000\n");
  ledger.skip_all();
  release(ledger.pool, nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING: free of NULL pointer at other.c:80000\n"
            "   qk_mem_ifree: WARNING: free on handle 3 with blockmgmt at other.c:80000\n");
  ledger.configure("EXCEPTIONS TRACE=not,qk_ifree");
  release(ledger.pool, allocate(ledger.pool, 10));
  EXPECT_EQ(ledger.log(), "") << "both are misuse warnings, which are off for the routine";
}

TEST(FreeingAPiece, WarnsOfAnUnknownPointerAndDoesNothing) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  allocate(ledger.pool, 10);
  char local = 0;
  ledger.skip_all();
  release(ledger.pool, &local);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80000\n"
            "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at other.c:80000\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
  EXPECT_EQ(Qk_mem_seq, 100U);
}

TEST(FreeingAPiece, WarnsOfAnUnknownPointerAsConfigured) {
  struct {
    const char* debug;
    const char* log;
  } const rows[] = {
      {"DEBUG TRACE=not,qk_ifree",
       "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at other.c:80000\n"},
      {"EXCEPTIONS=qk_ifree",
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80000\n"
       "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at other.c:80000\n"},
      {"DEBUG=not,qk_ifree", ""},
      {"CTRLBLKS TRACE SUMMARY", ""},
  };
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kFreeing);
  char local = 0;
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    release(ledger.pool, &local);
    EXPECT_EQ(ledger.log(), row.log) << row.debug;
  }
}

TEST(FreeingAPiece, TreatsASecondFreeAsAnUnknownPointer) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kFreeing);
  allocate(ledger.pool, 10);
  void* piece = allocate(ledger.pool, 20);
  release(ledger.pool, piece);
  release(ledger.pool, piece);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80000\n"
            "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at other.c:80000\n");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
}

TEST(FreeingAPiece, WarnsOfNullInBothRoutines) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  allocate(ledger.pool, 10);
  ledger.skip_all();
  release(ledger.pool, nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING: free of NULL pointer at other.c:80000\n"
            "   qk_mem_block_free: WARNING:   3 [p0] ptr not found at other.c:80000\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
}

TEST(FreeingAPiece, WarnsIfItLiesInNoBlockAndRemovesItsRecord) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  allocate(ledger.pool, 10);
  kit::hold(ledger.pool.record(), 0x1000, 'm', 1, 30);
  ledger.skip_all();
  release(ledger.pool, kit::at(0x1000));
  EXPECT_EQ(ledger.log(),
            "   qk_mem_block_free: WARNING:   3 [p1] ptr not found in any block at other.c:80000\n"
            "   qk_mem_ifree:          3 [p1] f other.c:80000; m 30 app.c:1\n");
  EXPECT_EQ(ledger.trace(), "3 f [p1] 1 30 other.c 80000 0\n");
  EXPECT_EQ(ledger.record(kit::at(0x1000)), "none");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
}

TEST(FreeingAPiece, WarnsUnlessItsAddressIsInsideABlock) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kFreeing);
  char* data = static_cast<char*>(allocate(ledger.pool, 64));
  struct {
    std::ptrdiff_t offset;
    bool inside;
  } const rows[] = {{-1, false}, {0, true}, {63, true}, {64, false}};
  for (const auto& row : rows) {
    kit::hold(ledger.pool.record(), reinterpret_cast<std::uintptr_t>(data + row.offset), 'm', 1, 0);
    ledger.skip_all();
    release(ledger.pool, data + row.offset);
    EXPECT_EQ(ledger.log() == "", row.inside) << row.offset;
  }
}

TEST(FreeingAPiece, WarnsOfAnObjectAndRemovesItsRecordOnly) {
  struct {
    char kind;
    const char* log;
  } const rows[] = {
      {'W',
       "   qk_mem_ifree: WARNING: free of new at other.c:80000 (allocated at made.c:9)\n"
       "   qk_mem_block_free: WARNING:   3 [p1] ptr not found in any block at other.c:80000\n"
       "   qk_mem_ifree:          3 [p1] f other.c:80000; W 8 made.c:9\n"},
      {'J',
       "   qk_mem_ifree: WARNING: free of new at other.c:80000 (allocated at made.c:9)\n"
       "   qk_mem_block_free: WARNING:   3 [p1] ptr not found in any block at other.c:80000\n"
       "   qk_mem_ifree:          3 [p1] f other.c:80000; J 8 made.c:9\n"},
  };
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  for (const auto& row : rows) {
    kit::hold(ledger.pool.record(), 0x1000, row.kind, 3, 8, "made.c", 9);
    ledger.skip_all();
    release(ledger.pool, kit::at(0x1000));
    EXPECT_EQ(ledger.log(), row.log);
    EXPECT_EQ(ledger.trace(), "3 f [p1] 3 8 other.c 80000 0\n");
    EXPECT_EQ(ledger.record(kit::at(0x1000)), "none");
  }
  EXPECT_EQ(ledger.sums(), "handle 1 for 144, tag 1 for 144, events 1") << "with the block's 96";
}

}  // namespace
