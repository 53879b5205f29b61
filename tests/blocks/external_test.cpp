#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
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

void release(int hid, void* memory) { qk_mem_ifree(hid, memory, "lib/other.c", 80000); }

/** Memory from the system's allocator, recorded on the handle as registered. */
void* hold_external(const Ledger& ledger, std::uint64_t count, std::uint64_t size) {
  void* memory = std::malloc(count * size);
  kit::hold(ledger.pool.record(), reinterpret_cast<std::uintptr_t>(memory), 'X', count, size,
            "made.c", 9);
  ledger.pool.record().registered = 1;
  return memory;
}

/** Either kind of block-managed handle, with a block of 96 bytes. */
constexpr const char* kEither[] = {"BLOCKMGMT BLOCKSIZE=64", "BLOCKMGMT BLOCKSIZE=64 BLOCKFREE"};

class ExternalMemory : public ::testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Blocks, ExternalMemory, ::testing::ValuesIn(kEither),
                         [](const auto& row) { return row.index == 0 ? "Plain" : "Blockfree"; });

TEST_P(ExternalMemory, CanBeFreedOnItsOwn) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, GetParam());
  qk_mem_imalloc(ledger.pool, 10, 8, "src/app.c", 12);
  void* memory = hold_external(ledger, 3, 8);
  EXPECT_EQ(kit::data_of(ledger.pool), "3 for 120");
  ledger.skip_all();
  release(ledger.pool, memory);
  EXPECT_EQ(ledger.log(), "   qk_mem_ifree:          3 [p1] f other.c:80000; X 8 made.c:9\n");
  EXPECT_EQ(ledger.trace(), "3 f [p1] 3 8 other.c 80000 0\n") << "no bytes, as for pieces";
  EXPECT_EQ(ledger.record(memory), "none");
  EXPECT_EQ(ledger.sums(), "handle 2 for 96, tag 2 for 96, events 1");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
}

TEST_P(ExternalMemory, CanBeFreedWithoutAnyConfiguration) {
  Ledger ledger(Environment{"", "", ""}, GetParam());
  void* memory = hold_external(ledger, 3, 8);
  EXPECT_EQ(ledger.sums(), "handle 1 for 120, tag 1 for 120, events 1");
  release(ledger.pool, memory);
  EXPECT_EQ(ledger.sums(), "handle 0 for 96, tag 0 for 96, events 2");
}

TEST(HandleWithExternalMemory, KeepsItsPiecesWithoutBlockfree) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  void* memory = hold_external(ledger, 1, 8);
  void* piece = qk_mem_imalloc(ledger.pool, 10, 8, "src/app.c", 12);
  ledger.skip_all();
  release(ledger.pool, piece);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING: free on handle 3 with blockmgmt at other.c:80000\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.record(piece).substr(0, 4), "m 1/");
  EXPECT_EQ(blocks_of(ledger.pool), "64:0-10");
  release(ledger.pool, memory);
}

TEST(HandleWithExternalMemory, WarnsOfAnUnknownPointerThreeTimes) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  void* memory = hold_external(ledger, 1, 8);
  char local = 0;
  ledger.skip_all();
  release(ledger.pool, &local);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80000\n"
            "   qk_mem_ifree: WARNING: free on handle 3 with blockmgmt at other.c:80000\n"
            "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at other.c:80000\n");
  EXPECT_EQ(ledger.trace(), "");
  release(ledger.pool, memory);
}

/** The routine that releases a piece, called directly. */
class BlockFree : public ::testing::Test {
 protected:
  BlockFree() : ledger_(Environment{"EXCEPTIONS", "", ""}, "BLOCKMGMT BLOCKFREE BLOCKSIZE=64") {}

  qk_mem_ptr* block_free(void* ptr, qk_mem_ptr* record) {
    return qk_mem_block_free(&ledger_.pool.record(), ptr, record, "lib/other.c", 80000,
                             &Qk_mem_debug[7]);
  }

  void* allocate(std::size_t size) {
    return qk_mem_imalloc(ledger_.pool, size, 1, "src/app.c", 12);
  }

  qk_mem_ptr* record_of(void* ptr) { return qk_mem_get_ptr(&ledger_.pool.record(), ptr); }

  Ledger ledger_;
};

TEST_F(BlockFree, ReturnsTheRecordWithoutRemovingIt) {
  allocate(10);
  void* piece = allocate(20);
  qk_mem_ptr* record = record_of(piece);
  EXPECT_EQ(block_free(piece, nullptr), record);
  EXPECT_EQ(blocks_of(ledger_.pool), "64:0-10");
  EXPECT_EQ(record_of(piece), record);
  EXPECT_EQ(record->kind, 'm');
  EXPECT_EQ(ledger_.log(), "");
}

TEST_F(BlockFree, UsesTheRecordThatIsPassedToIt) {
  allocate(10);
  void* piece = allocate(20);
  qk_mem_ptr* record = record_of(piece);
  EXPECT_EQ(block_free(piece, record), record);
  EXPECT_EQ(blocks_of(ledger_.pool), "64:0-10");
}

TEST_F(BlockFree, ReturnsNullForAnUnknownPointer) {
  char local = 0;
  EXPECT_EQ(block_free(&local, nullptr), nullptr);
  EXPECT_EQ(ledger_.log(),
            "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at other.c:80000\n");
}

TEST_F(BlockFree, FreesExternalMemory) {
  void* memory = hold_external(ledger_, 1, 8);
  qk_mem_ptr* record = record_of(memory);
  EXPECT_EQ(block_free(memory, nullptr), record);
  EXPECT_EQ(ledger_.log(), "");
  qk_mem_free_ptr(&ledger_.pool.record(), record);
}

TEST_F(BlockFree, FreesAllElementsOfACalloc) {
  allocate(10);
  void* piece = qk_mem_icalloc(ledger_.pool, 3, 7, 1, "src/app.c", 12);
  EXPECT_EQ(blocks_of(ledger_.pool), "64:0-31");
  EXPECT_NE(block_free(piece, nullptr), nullptr);
  EXPECT_EQ(blocks_of(ledger_.pool), "64:0-10");
}

TEST_F(BlockFree, LeavesBlocksAloneWithoutBlockfree) {
  void* piece = allocate(20);
  ledger_.pool.record().blockfree = 0;
  EXPECT_EQ(block_free(piece, nullptr), record_of(piece));
  EXPECT_EQ(blocks_of(ledger_.pool), "64:0-20");
  kit::hold(ledger_.pool.record(), 0x1000, 'm', 1, 8);
  EXPECT_EQ(block_free(kit::at(0x1000), nullptr), record_of(kit::at(0x1000)));
  EXPECT_EQ(ledger_.log(), "") << "not even the missing block is reported";
}

}  // namespace
