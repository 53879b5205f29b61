#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
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

void* resize(int hid, void* piece, std::size_t size, int alignment = 1) {
  return qk_mem_irealloc(hid, piece, size, alignment, "lib/other.c", 80);
}

/** A handle that frees pieces one by one, in blocks of 64 bytes. */
constexpr const char* kFreeing = "BLOCKMGMT BLOCKFREE BLOCKSIZE=64";

TEST(ResizingAPiece, AllocatesIfThePointerIsNull) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  allocate(ledger.pool, 3);
  ledger.skip_all();
  const void* piece = resize(ledger.pool, nullptr, 20, 8);
  EXPECT_EQ(position_of(ledger.pool, piece), "block 1 at 8");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-28");
  EXPECT_EQ(ledger.record(piece), "r 1/20 other.c:80 event 1");
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] r 20 other.c:80; newly created\n");
  EXPECT_EQ(ledger.trace(), "3 r [p1] 1 20 other.c 80 0\n");
  EXPECT_EQ(kit::data_of(ledger.pool), "3 for 96");
}

TEST(ResizingAPiece, AllocatesForNullEvenWithoutBlockfree) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, "BLOCKMGMT BLOCKSIZE=64");
  EXPECT_EQ(position_of(ledger.pool, resize(ledger.pool, nullptr, 20)), "block 1 at 0");
  EXPECT_EQ(position_of(ledger.pool, resize(ledger.pool, nullptr, 20)), "block 1 at 20");
  EXPECT_EQ(ledger.log(), "");
}

TEST(ResizingAPiece, KeepsItsAddressIfItFits) {
  for (const std::size_t size : {20, 19, 1, 0}) {
    Scene scene;
    Pool pool(kFreeing);
    allocate(pool, 10);
    void* piece = allocate(pool, 20);
    std::memset(piece, 'x', 20);
    EXPECT_EQ(resize(pool, piece, size), piece) << size;
    EXPECT_EQ(blocks_of(pool), "64:0-30") << "no room is recovered";
    EXPECT_EQ(std::string(static_cast<char*>(piece), 20), std::string(20, 'x'));
    EXPECT_EQ(pool.record().block_used, 30U);
  }
}

TEST(ResizingAPiece, UpdatesItsRecordIfItFits) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  void* piece = allocate(ledger.pool, 20);
  ledger.skip_all();
  resize(ledger.pool, piece, 15);
  EXPECT_EQ(ledger.record(piece), "r 1/15 other.c:80 event 1");
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] r 15 other.c:80; [p1] m 20 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 r [p1] 1 15 other.c 80 0\n");
  EXPECT_EQ(ledger.sums(), "handle 2 for 96, tag 2 for 96, events 1") << "one is the block";
}

TEST(ResizingAPiece, MovesAShrunkPieceThatGrowsAgain) {
  Scene scene;
  Pool pool(kFreeing);
  void* piece = allocate(pool, 20);
  allocate(pool, 10);
  EXPECT_EQ(resize(pool, piece, 15), piece);
  EXPECT_EQ(resize(pool, piece, 16), static_cast<char*>(piece) + 30);
  EXPECT_EQ(blocks_of(pool), "64:15-46") << "15 bytes were freed";
}

TEST(ResizingAPiece, ReplacesItIfItDoesNotFit) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  void* piece = allocate(ledger.pool, 10);
  allocate(ledger.pool, 10);
  ledger.skip_all();
  void* moved = resize(ledger.pool, piece, 30, 16);
  EXPECT_EQ(position_of(ledger.pool, moved), "block 1 at 32");
  EXPECT_EQ(blocks_of(ledger.pool), "64:10-62");
  EXPECT_EQ(ledger.pool.record().block_used, 62U);
  EXPECT_EQ(ledger.record(piece), "none");
  EXPECT_EQ(ledger.record(moved), "r 1/30 other.c:80 event 1");
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] r 30 other.c:80; [p2] m 10 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 r [p1] 1 30 other.c 80 0\n");
  EXPECT_EQ(ledger.sums(), "handle 3 for 96, tag 3 for 96, events 1");
}

TEST(ResizingAPiece, LogsTheOldCountAndSizeOfACalloc) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  void* piece = qk_mem_icalloc(ledger.pool, 5, 4, 8, "src/app.c", 12);
  ledger.skip_all();
  EXPECT_EQ(resize(ledger.pool, piece, 20), piece) << "it has 20 bytes";
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc:       3 [p1] r 20 other.c:80; [p1] c 5/4 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 r [p1] 1 20 other.c 80 0\n");
}

TEST(ResizingAPiece, CanGrowTheOnlyPieceInPlace) {
  Scene scene;
  Pool pool(kFreeing);
  void* piece = allocate(pool, 40);
  EXPECT_EQ(resize(pool, piece, 60), piece);
  EXPECT_EQ(blocks_of(pool), "64:0-60");
}

TEST(ResizingAPiece, CanGrowTheLastPieceInPlace) {
  Scene scene;
  Pool pool(kFreeing);
  allocate(pool, 10);
  void* piece = allocate(pool, 10);
  EXPECT_EQ(resize(pool, piece, 54), piece);
  EXPECT_EQ(blocks_of(pool), "64:0-64");
}

TEST(ResizingAPiece, MovesItToANewBlockIfNoneHasRoom) {
  Scene scene;
  Pool pool(kFreeing);
  allocate(pool, 10);
  void* piece = allocate(pool, 10);
  void* moved = resize(pool, piece, 60);
  EXPECT_EQ(position_of(pool, moved), "block 1 at 0");
  EXPECT_EQ(blocks_of(pool), "64:0-60 64:0-10") << "the old piece is freed";
  moved = resize(pool, moved, 200);
  EXPECT_EQ(blocks_of(pool), "200:0-200 64:0-0 64:0-10");
  EXPECT_EQ(kit::data_of(pool), "2 for 424");
}

TEST(ResizingAPiece, PlacesABigBlockAsIfTheOldPieceWereFreed) {
  Scene scene;
  Pool pool(kFreeing);
  allocate(pool, 64);
  void* piece = allocate(pool, 64);
  allocate(pool, 50);
  EXPECT_EQ(blocks_of(pool), "64:0-50 64:0-64 64:0-64");
  resize(pool, piece, 100);
  EXPECT_EQ(blocks_of(pool), "64:0-50 64:0-0 100:0-100 64:0-64");
}

TEST(ResizingAPiece, DoesNotCopyTheContents) {
  Scene scene;
  Pool pool(kFreeing);
  void* piece = allocate(pool, 10);
  void* other = allocate(pool, 40);
  std::memset(other, 'y', 40);
  std::memset(piece, 'x', 10);
  qk_mem_ifree(pool, other, "lib/other.c", 80);
  void* moved = resize(pool, piece, 64);
  EXPECT_EQ(position_of(pool, moved), "block 1 at 0");
  piece = allocate(pool, 10);
  std::memset(piece, 'x', 10);
  allocate(pool, 10);
  moved = resize(pool, piece, 20);
  EXPECT_NE(moved, piece);
  EXPECT_NE(std::memcmp(moved, "xxxxxxxxxx", 10), 0);
}

TEST(ResizingAPiece, ReturnsNullAndChangesNothingWithoutBlockfree) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  void* piece = allocate(ledger.pool, 20);
  const std::string record = ledger.record(piece);
  ledger.skip_log();
  ledger.skip_trace();
  Qk_mem_error = 0;
  for (const std::size_t size : {10, 20, 30}) EXPECT_EQ(resize(ledger.pool, piece, size), nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING: realloc on handle 3 with blockmgmt at other.c:80\n"
            "   qk_mem_irealloc: WARNING: realloc on handle 3 with blockmgmt at other.c:80\n"
            "   qk_mem_irealloc: WARNING: realloc on handle 3 with blockmgmt at other.c:80\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.record(piece), record);
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-20");
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(ResizingAPiece, WarnsTwiceWithoutBlockfreeOrRecords) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, "BLOCKMGMT BLOCKSIZE=64");
  void* piece = allocate(ledger.pool, 20);
  EXPECT_EQ(resize(ledger.pool, piece, 10), nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
            "   qk_mem_irealloc: WARNING: realloc on handle 3 with blockmgmt at other.c:80\n");
  ledger.configure("EXCEPTIONS TRACE=not,qk_irealloc");
  EXPECT_EQ(resize(ledger.pool, piece, 10), nullptr);
  EXPECT_EQ(ledger.log(), "");
}

TEST(ResizingAPiece, ReturnsNullForAnUnknownPointer) {
  struct {
    const char* debug;
    const char* log;
  } const rows[] = {
      {"EXCEPTIONS",
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG TRACE=not,qk_irealloc",
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG=not,qk_irealloc", ""},
      {"TRACE SUMMARY", ""},
  };
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, kFreeing);
  allocate(ledger.pool, 20);
  char local = 0;
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    EXPECT_EQ(resize(ledger.pool, &local, 10), nullptr);
    EXPECT_EQ(ledger.log(), row.log) << row.debug;
    EXPECT_EQ(ledger.trace(), "");
    EXPECT_EQ(blocks_of(ledger.pool), "64:0-20");
  }
}

TEST(ResizingAPiece, WarnsOfSizeZeroAndKeepsThePiece) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  void* piece = allocate(ledger.pool, 20);
  ledger.skip_all();
  EXPECT_EQ(resize(ledger.pool, piece, 0), piece);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING: realloc of 0 at other.c:80\n"
            "   qk_mem_irealloc:       3 [p1] r 0 other.c:80; [p1] m 20 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 r [p1] 1 0 other.c 80 0\n");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-20");
}

TEST(ResizingAPiece, WarnsOfEverythingInOrder) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, "BLOCKMGMT BLOCKSIZE=64");
  char local = 0;
  EXPECT_EQ(resize(ledger.pool, &local, 0, 3), nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING: realloc of 0 at other.c:80\n"
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
            "   qk_mem_irealloc: WARNING: realloc of 0 at other.c:80 has alignment of 3\n"
            "   qk_mem_irealloc: WARNING: realloc on handle 3 with blockmgmt at other.c:80\n");
}

TEST(Recalloc, ZeroesOnlyWhatItAddsToAPiece) {
  Scene scene;
  Pool pool(kFreeing);
  void* whole = allocate(pool, 64);
  std::memset(whole, 'x', 64);
  qk_mem_ifree(pool, whole, "lib/other.c", 80);
  void* piece = qk_mem_irecalloc(pool, nullptr, 3, 4, 0, 4, "lib/other.c", 80);
  EXPECT_EQ(std::string(static_cast<char*>(piece), 13), std::string(12, '\0') + "x");
  std::memset(piece, 'a', 12);
  EXPECT_EQ(qk_mem_irecalloc(pool, piece, 5, 4, 3, 4, "lib/other.c", 80), piece);
  EXPECT_EQ(std::string(static_cast<char*>(piece), 21),
            std::string(12, 'a') + std::string(8, '\0') + "x");
  EXPECT_EQ(qk_mem_irecalloc(pool, piece, 2, 4, 5, 4, "lib/other.c", 80), piece);
  EXPECT_EQ(std::string(static_cast<char*>(piece), 8), std::string(8, 'a'));
  EXPECT_EQ(kit::data_of(pool), "1 for 96");
}

}  // namespace
