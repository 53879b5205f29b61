#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "core/registry.h"
#include "table/blocks.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::handle_of;
using kit::Pool;
using kit::Scene;

/** A handle whose blocks have room for one piece each. The first blocks are searched one by one. */
class ManyBlocks : public testing::Test {
 protected:
  void fill(std::size_t count) {
    while (pieces.size() < count) {
      pieces.push_back(static_cast<char*>(qk_mem_imalloc(pool, 40, 1, "src/app.c", 12)));
    }
  }

  void release(std::size_t i) { qk_mem_ifree(pool, pieces[i], "src/app.c", 13); }

  qk_mem_block* block_at(const char* address) { return qk::mem::block_of(record(), address); }

  qk_mem_handle& record() { return handle_of(pool); }

  /** Whether the block of each piece, from its first to its last byte, is found. */
  void expect_each_is_found() {
    for (char* piece : pieces) {
      auto* block = reinterpret_cast<qk_mem_block*>(piece - Qk_mem_blocksize);
      ASSERT_EQ(block_at(piece), block);
      ASSERT_EQ(block_at(piece + 63), block);
    }
  }

  /** Whether headers and what lies behind a block are in no block. */
  void expect_nothing_else_is_found() {
    for (char* piece : pieces) {
      ASSERT_EQ(block_at(piece - 1), nullptr);
      ASSERT_EQ(block_at(piece - Qk_mem_blocksize), nullptr);
      ASSERT_EQ(block_at(piece + 64), nullptr);
    }
    EXPECT_EQ(block_at(nullptr), nullptr);
    EXPECT_EQ(block_at(reinterpret_cast<char*>(-1)), nullptr);
  }

  const Scene scene;
  const Pool pool{"BLOCKMGMT BLOCKFREE BLOCKSIZE=64"};
  std::vector<char*> pieces;
};

TEST_F(ManyBlocks, AreFoundByEachAddressInThem) {
  for (const std::size_t count : {1, 15, 16, 17, 18, 1000}) {
    fill(count);
    expect_each_is_found();
    expect_nothing_else_is_found();
  }
}

TEST_F(ManyBlocks, AreFoundWhileNewOnesCome) {
  fill(20);
  for (std::size_t count = 21; count < 300; ++count) {
    expect_each_is_found();
    fill(count);
  }
}

TEST_F(ManyBlocks, AreFoundWithoutMemoryForAnIndex) {
  fill(1000);
  kit::fail_all_requests();
  errno = 0;
  expect_each_is_found();
  expect_nothing_else_is_found();
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(errno, 0);
  kit::let_succeed();
  EXPECT_EQ(record().block_index, nullptr);
  expect_each_is_found();
  EXPECT_NE(record().block_index, nullptr);
}

TEST_F(ManyBlocks, AreFoundAfterAClear) {
  fill(100);
  expect_each_is_found();
  qk_mem_iclear_handle(pool, "src/app.c", 14);
  expect_each_is_found();
}

TEST_F(ManyBlocks, TakeTheirPiecesBackInAnyOrder) {
  fill(500);
  std::vector<std::size_t> order(500);
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(20261122));
  for (const std::size_t i : order) {
    auto* block = reinterpret_cast<qk_mem_block*>(pieces[i] - Qk_mem_blocksize);
    ASSERT_EQ(block->high_mark, 40U);
    release(i);
    ASSERT_EQ(block->high_mark, 0U);
  }
  EXPECT_EQ(record().qty, 0U);
}

}  // namespace
