#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::blocks_of;
using kit::Environment;
using kit::Ledger;
using kit::position_of;

void* allocate(int hid, std::size_t size, int alignment = 1) {
  return qk_mem_imalloc(hid, size, alignment, "src/app.c", 12);
}

void* resize(int hid, void* piece, std::size_t size, int alignment = 1) {
  return qk_mem_irealloc(hid, piece, size, alignment, "lib/other.c", 80);
}

/** A handle that frees pieces one by one, in blocks of 64 bytes. */
constexpr const char* kFreeing = "BLOCKMGMT BLOCKFREE BLOCKSIZE=64";

/** Three pieces in one block. One is resized to more than any block has room for. */
class FailedReplacement : public ::testing::TestWithParam<int> {
 protected:
  FailedReplacement() : ledger_(Environment{"DEBUG", "DB", ""}, kFreeing) {
    for (void*& piece : pieces_) {
      piece = allocate(ledger_.pool, 16);
      std::memset(piece, 'x', 16);
    }
    old_ = pieces_[GetParam()];
    record_ = ledger_.record(old_);
    books_ = ledger_.sums();
    ledger_.skip_log();
    ledger_.skip_trace();
  }

  void expect_that_nothing_has_changed() {
    EXPECT_EQ(blocks_of(ledger_.pool), "64:0-48");
    EXPECT_EQ(ledger_.record(old_), record_);
    EXPECT_EQ(ledger_.sums(), books_);
    EXPECT_EQ(ledger_.pool.record().block_used, 48U);
    EXPECT_EQ(ledger_.trace(), "");
  }

  Ledger ledger_;
  void* pieces_[3] = {};
  void* old_ = nullptr;
  std::string record_;
  std::string books_;
};

INSTANTIATE_TEST_SUITE_P(OfPiece, FailedReplacement, ::testing::Values(0, 1, 2));

TEST_P(FailedReplacement, KeepsTheOldPieceAndItsRecord) {
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger_.pool, old_, 100), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  expect_that_nothing_has_changed();
  EXPECT_EQ(
      ledger_.log(),
      "   qk_mem_new_block: ERROR: malloc of 132 at other.c:80 for block failed: 12 Cannot allocate memory\n");
}

TEST_P(FailedReplacement, DoesNotHandOutTheOldPiecesRoom) {
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger_.pool, old_, 100), nullptr);
  EXPECT_EQ(position_of(ledger_.pool, allocate(ledger_.pool, 16)), "block 1 at 48");
  EXPECT_EQ(position_of(ledger_.pool, allocate(ledger_.pool, 16)), "block 1 at 0")
      << "of another block";
  EXPECT_EQ(blocks_of(ledger_.pool), "64:0-16 64:0-64");
  EXPECT_EQ(std::string(static_cast<char*>(old_), 16), std::string(16, 'x'));
}

TEST_P(FailedReplacement, CanBeRetriedAndFreed) {
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger_.pool, old_, 100), nullptr);
  void* moved = resize(ledger_.pool, old_, 100);
  EXPECT_EQ(position_of(ledger_.pool, moved), "block 1 at 0");
  EXPECT_EQ(ledger_.record(old_), "none");
  for (void* piece : pieces_) {
    qk_mem_ifree(ledger_.pool, piece == old_ ? moved : piece, "lib/other.c", 81);
  }
  EXPECT_EQ(ledger_.log("qk_mem_block_free"), "");
  EXPECT_EQ(blocks_of(ledger_.pool), GetParam() == 1 ? "100:0-0 64:16-32" : "100:0-0 64:0-0");
}

TEST_P(FailedReplacement, ResultsFromAHugeSize) {
  for (const std::size_t size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX - 47, SIZE_MAX / 2 + 1}) {
    for (const int alignment : {1, 16, 32, INT_MAX}) {
      Qk_mem_error = 0;
      EXPECT_EQ(resize(ledger_.pool, old_, size, alignment), nullptr) << size;
      EXPECT_EQ(qk_mem_error(), 5012) << size;
    }
  }
  expect_that_nothing_has_changed();
}

TEST_P(FailedReplacement, ResultsFromANonPositiveAlignment) {
  for (const int alignment : {0, -8, INT_MIN}) {
    Qk_mem_error = 0;
    EXPECT_EQ(resize(ledger_.pool, old_, 20, alignment), nullptr) << alignment;
    EXPECT_EQ(qk_mem_error(), 5022) << alignment;
  }
  expect_that_nothing_has_changed();
  EXPECT_EQ(
      ledger_.log(),
      "   qk_mem_irealloc: WARNING: realloc of 20 at other.c:80 has alignment of 0\n"
      "   qk_mem_irealloc: WARNING: realloc of 20 at other.c:80 has alignment of -8\n"
      "   qk_mem_irealloc: WARNING: realloc of 20 at other.c:80 has alignment of -2147483648\n");
}

TEST(ReallocWithoutAPositiveAlignment, IsRefusedEvenIfThePieceFits) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kFreeing);
  void* piece = allocate(ledger.pool, 16);
  for (const std::size_t size : {8, 16, 24}) {
    Qk_mem_error = 0;
    EXPECT_EQ(resize(ledger.pool, piece, size, 0), nullptr) << size;
    EXPECT_EQ(qk_mem_error(), 5022) << size;
  }
  Qk_mem_error = 0;
  EXPECT_EQ(resize(ledger.pool, nullptr, 8, 0), nullptr);
  EXPECT_EQ(qk_mem_error(), 5022);
  EXPECT_EQ(ledger.record(piece), "m 1/16 app.c:12 event 1");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-16");
}

TEST(ReplacedPiece, IsUsableEvenIfItCannotBeRecorded) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kFreeing);
  void* piece = allocate(ledger.pool, 16);
  allocate(ledger.pool, 16);
  for (auto& array : ledger.pool.record().ptrs) array.used = array.capacity;
  ledger.skip_all();
  kit::fail_request(1);
  void* moved = resize(ledger.pool, piece, 32);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(position_of(ledger.pool, moved), "block 1 at 32");
  EXPECT_EQ(ledger.record(moved), "none");
  EXPECT_EQ(ledger.record(piece), "none");
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_new_ptr: ERROR: realloc of 3840 at other.c:80 of a->ptrs failed: 12 Cannot allocate memory\n");
}

/** Memory from the system's allocator, recorded on the handle with this kind. */
void* hold_foreign(const Ledger& ledger, char kind) {
  void* memory = std::malloc(16);
  kit::hold(ledger.pool.record(), reinterpret_cast<std::uintptr_t>(memory), kind, 2, 8, "made.c",
            9);
  return memory;
}

TEST(ReallocOfForeignMemory, FreesExternalMemoryThatIsTooSmall) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  void* memory = hold_foreign(ledger, 'X');
  ledger.skip_all();
  EXPECT_EQ(position_of(ledger.pool, resize(ledger.pool, memory, 17)), "block 1 at 0");
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_irealloc: WARNING: realloc of external at other.c:80 (allocated at made.c:9)\n"
      "   qk_mem_irealloc:       3 [p1] r 17 other.c:80; [p2] X 8 made.c:9\n");
  EXPECT_EQ(ledger.trace(), "3 r [p1] 1 17 other.c 80 0\n");
}

TEST(ReallocOfForeignMemory, KeepsFreedExternalBytesInTheSums) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kFreeing);
  void* memory = hold_foreign(ledger, 'X');
  EXPECT_EQ(ledger.sums(), "handle 2 for 112, tag 2 for 112, events 1");
  resize(ledger.pool, memory, 17);
  EXPECT_EQ(ledger.sums(), "handle 2 for 112, tag 2 for 112, events 2");
}

TEST(ReallocOfForeignMemory, KeepsResizedExternalBytesInTheSums) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kFreeing);
  void* memory = hold_foreign(ledger, 'X');
  EXPECT_EQ(resize(ledger.pool, memory, 16), memory);
  EXPECT_EQ(ledger.sums(), "handle 2 for 112, tag 2 for 112, events 2");
  std::free(memory);
}

TEST(ReallocOfForeignMemory, KeepsExternalMemoryThatIsLargeEnough) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  void* memory = hold_foreign(ledger, 'X');
  ledger.skip_all();
  EXPECT_EQ(resize(ledger.pool, memory, 16), memory);
  EXPECT_EQ(ledger.record(memory), "r 1/16 other.c:80 event 1");
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_irealloc: WARNING: realloc of external at other.c:80 (allocated at made.c:9)\n"
      "   qk_mem_irealloc:       3 [p1] r 16 other.c:80; [p1] X 8 made.c:9\n");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-0");
  std::free(memory);
}

TEST(ReallocOfForeignMemory, KeepsExternalMemoryOnFailure) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, kFreeing);
  void* memory = hold_foreign(ledger, 'X');
  const std::string record = ledger.record(memory);
  const std::string books = ledger.sums();
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger.pool, memory, 100), nullptr);
  EXPECT_EQ(ledger.record(memory), record);
  EXPECT_EQ(ledger.sums(), books);
  std::memset(memory, 7, 16);
  std::free(memory);
}

TEST(ReallocOfForeignMemory, ReplacesMemoryFromNewWithoutFreeingIt) {
  struct {
    char kind;
    const char* log;
  } const rows[] = {
      {'W',
       "   qk_mem_irealloc: WARNING: realloc of new at other.c:80 (allocated at made.c:9)\n"
       "   qk_mem_block_free: WARNING:   3 [p1] ptr not found in any block at other.c:80\n"
       "   qk_mem_irealloc:       3 [p2] r 17 other.c:80; [p1] W 8 made.c:9\n"},
      {'J',
       "   qk_mem_irealloc: WARNING: realloc of new[] at other.c:80 (allocated at made.c:9)\n"
       "   qk_mem_block_free: WARNING:   3 [p1] ptr not found in any block at other.c:80\n"
       "   qk_mem_irealloc:       3 [p2] r 17 other.c:80; [p1] J 8 made.c:9\n"},
  };
  Ledger ledger(Environment{"DEBUG", "DB", ""}, kFreeing);
  for (const auto& row : rows) {
    void* memory = hold_foreign(ledger, row.kind);
    ledger.skip_all();
    EXPECT_NE(resize(ledger.pool, memory, 17), nullptr);
    EXPECT_EQ(ledger.log(), row.log);
    EXPECT_EQ(ledger.trace(), "3 r [p1] 1 17 other.c 80 0\n");
    EXPECT_EQ(ledger.record(memory), "none");
    std::free(memory);
  }
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-34");
}

}  // namespace
