#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "accounting/pieces.h"
#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Marks;
using kit::Scene;
using kit::StandaloneBlocks;

/** The switches of malloc. */
qk_mem_debug* const kCaller = &Qk_mem_debug[4];

qk_mem_block* add_block(StandaloneBlocks& pool, std::size_t size) {
  return qk_mem_new_block(pool, size, "src/app.c", 12, kCaller);
}

struct PlaceRow {
  std::initializer_list<Marks> before;
  std::size_t size;
  const char* after;
};

/** Adds blocks to a handle with blocks of 64 bytes. Their capacities tell listed blocks apart. */
void expect_places(std::initializer_list<PlaceRow> rows) {
  for (const PlaceRow& row : rows) {
    StandaloneBlocks pool(64, row.before);
    ASSERT_NE(add_block(pool, row.size), nullptr);
    EXPECT_EQ(pool.blocks(), row.after);
  }
}

TEST(NewBlock, HasAtLeastTheBlockSize) {
  Scene scene;
  struct {
    std::size_t size;
    std::uint64_t capacity;
  } const rows[] = {{0, 64}, {1, 64}, {63, 64}, {64, 64}, {65, 65}, {1000, 1000}};
  for (const auto& row : rows) {
    StandaloneBlocks pool(64);
    const qk_mem_block* block = add_block(pool, row.size);
    EXPECT_EQ(block->capacity, row.capacity);
    EXPECT_EQ(block->low_mark, 0U);
    EXPECT_EQ(block->high_mark, 0U);
    EXPECT_EQ(block->next, nullptr);
    EXPECT_EQ(pool->blocks, block);
  }
}

TEST(NewBlock, IsChargedToHandleAndTagWithItsHeader) {
  Scene scene;
  StandaloneBlocks pool(64);
  add_block(pool, 10);
  EXPECT_EQ(pool.sums(), "data 0 for 96, overhead 0 for 0, tag 0 for 96");
  EXPECT_EQ(pool->num_blocks, 1U);
  add_block(pool, 100);
  EXPECT_EQ(pool.sums(), "data 0 for 228, overhead 0 for 0, tag 0 for 228");
  EXPECT_EQ(pool->num_blocks, 2U);
  EXPECT_EQ(pool->block_used, 0U);
}

TEST(NewBlock, HasAlignedDataAfterAHeaderOf32Bytes) {
  Scene scene;
  StandaloneBlocks pool(64);
  EXPECT_EQ(Qk_mem_blocksize, 32U);
  EXPECT_EQ(sizeof(qk_mem_block), 32U);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(add_block(pool, 10)) % 16, 0U);
}

TEST(NewBlock, BecomesTheHeadWhenItIsSmall) {
  Scene scene;
  expect_places({
      {{}, 10, "64:0-0"},
      {{{101, 0, 50}}, 10, "64:0-0 101:0-50"},
      {{{101, 0, 101}}, 63, "64:0-0 101:0-101"},
      {{{101, 0, 50}, {102, 0, 102}, {103, 0, 0}}, 0, "64:0-0 101:0-50 102:0-102 103:0-0"},
  });
}

TEST(NewBlock, BecomesTheHeadWhenItIsBigButNoFullBlockFollows) {
  Scene scene;
  expect_places({
      {{}, 64, "64:0-0"},
      {{{101, 0, 50}}, 200, "200:0-0 101:0-50"},
      {{{101, 0, 101}}, 200, "200:0-0 101:0-101"},
      {{{101, 0, 101}, {102, 0, 50}}, 200, "200:0-0 101:0-101 102:0-50"},
      {{{101, 0, 50}, {102, 0, 50}, {103, 0, 0}}, 64, "64:0-0 101:0-50 102:0-50 103:0-0"},
      {{{101, 0, 50}, {102, 0, 101}, {103, 50, 102}}, 64, "64:0-0 101:0-50 102:0-101 103:50-102"},
  });
}

TEST(NewBlock, FollowsTheLeadingBlocksWithRoomWhenItIsBig) {
  Scene scene;
  expect_places({
      {{{101, 0, 50}, {102, 0, 102}}, 200, "101:0-50 200:0-0 102:0-102"},
      {{{101, 0, 50}, {102, 0, 102}}, 64, "101:0-50 64:0-0 102:0-102"},
      {{{101, 0, 50}, {102, 0, 102}, {103, 0, 103}}, 65, "101:0-50 65:0-0 102:0-102 103:0-103"},
      {{{101, 0, 50}, {102, 0, 101}, {103, 0, 103}}, 65, "101:0-50 102:0-101 65:0-0 103:0-103"},
      {{{101, 0, 0}, {102, 0, 0}, {103, 0, 0}, {104, 0, 104}, {105, 0, 0}},
       200,
       "101:0-0 102:0-0 103:0-0 200:0-0 104:0-104 105:0-0"},
  });
}

TEST(NewBlock, IgnoresTheMarksOfTheHead) {
  Scene scene;
  expect_places({
      {{{101, 0, 101}, {102, 0, 102}}, 200, "101:0-101 200:0-0 102:0-102"},
      {{{101, 0, 101}, {102, 0, 50}, {103, 0, 103}}, 200, "101:0-101 102:0-50 200:0-0 103:0-103"},
  });
}

TEST(NewBlock, CountsABlockAsFullDespiteRoomBelow) {
  Scene scene;
  expect_places({
      {{{101, 0, 50}, {102, 100, 102}}, 200, "101:0-50 200:0-0 102:100-102"},
      {{{101, 0, 50}, {102, 100, 101}}, 200, "200:0-0 101:0-50 102:100-101"},
      {{{101, 0, 50}, {0, 0, 0}}, 200, "101:0-50 200:0-0 0:0-0"},
  });
}

TEST(NewBlock, IsAlwaysBigIfTheBlockSizeIsZero) {
  Scene scene;
  StandaloneBlocks pool(0, {{101, 0, 50}, {102, 0, 102}});
  add_block(pool, 0);
  EXPECT_EQ(pool.blocks(), "101:0-50 0:0-0 102:0-102");
  add_block(pool, 5);
  EXPECT_EQ(pool.blocks(), "101:0-50 5:0-0 0:0-0 102:0-102");
  EXPECT_EQ(pool.sums(), "data 0 for 69, overhead 0 for 0, tag 0 for 69");
}

TEST(NewBlock, IsRecordedLoggedAndTracedOnlyIfTracked) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  StandaloneBlocks pool(64);
  scene.skip_log();
  scene.skip_trace();
  add_block(pool, 100);
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(scene.trace(), "");
  EXPECT_EQ(pool.sums(), "data 0 for 132, overhead 0 for 0, tag 0 for 132");
  pool->track_blocks = 1;
  qk_mem_new_block(pool, 200, "src/app.c", 70000, kCaller);
  EXPECT_EQ(scene.log("qk_mem_new_block"), "   qk_mem_new_block:      7 [p1] B 232 app.c:4464\n");
  EXPECT_EQ(scene.trace("B"), "7 B [p1] 1 232 app.c 70000 232\n");
  EXPECT_EQ(pool.sums(), "data 1 for 364, overhead 1 for 768, tag 1 for 364");
}

TEST(NewBlock, LeavesARecordWithTheCallersLocation) {
  Scene scene;
  StandaloneBlocks pool(64);
  pool->track_blocks = 1;
  Qk_mem_seq = 100;
  qk_mem_block* block = add_block(pool, 10);
  qk_mem_ptr* record = nullptr;
  for (const qk_mem_ptr_array& array : pool->ptrs) {
    if (array.used == 2) record = &array.ptrs[1];
  }
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->address, block);
  EXPECT_EQ(record->kind, 'B');
  EXPECT_EQ(record->count, 1U);
  EXPECT_EQ(record->size, 96U);
  EXPECT_EQ(record->seq, 102U) << "event 101 was the array";
  EXPECT_STREQ(record->file, "app.c");
  EXPECT_EQ(record->line, 12U);
}

TEST(NewBlock, IsUsableEvenIfItCannotBeRecorded) {
  Scene scene("EXCEPTIONS");
  StandaloneBlocks pool(64);
  pool->track_blocks = 1;
  scene.skip_log();
  kit::fail_request(2);
  EXPECT_NE(add_block(pool, 10), nullptr);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(pool.blocks(), "64:0-0");
  EXPECT_EQ(pool.sums(), "data 0 for 96, overhead 0 for 0, tag 0 for 96");
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_new_ptr: ERROR: realloc of 768 at app.c:12 of a->ptrs failed: 12 Cannot allocate memory\n");
}

TEST(NewBlock, ChangesNothingOnFailure) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  StandaloneBlocks pool(64, {{101, 0, 50}});
  pool->track_blocks = 1;
  scene.skip_log();
  scene.skip_trace();
  Qk_mem_seq = 100;
  kit::fail_request(1);
  EXPECT_EQ(qk_mem_new_block(pool, 200, "src/app.c", 70000, kCaller), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(pool.blocks(), "101:0-50");
  EXPECT_EQ(pool.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
  EXPECT_EQ(pool->num_blocks, 0U);
  EXPECT_EQ(Qk_mem_seq, 100U);
  EXPECT_EQ(scene.trace(), "");
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_new_block: ERROR: malloc of 232 at app.c:70000 for block failed: 12 Cannot allocate memory\n");
}

TEST(NewBlock, ReportsAFailureUnderTheCallersSwitches) {
  Scene scene("EXCEPTIONS");
  StandaloneBlocks pool(64);
  struct {
    const char* debug;
    bool reported;
  } const rows[] = {
      {"DEBUG=qk_imalloc", true},           {"EXCEPTIONS=qk_imalloc", true},
      {"DEBUG TRACE=not,qk_imalloc", true}, {"DEBUG=not,qk_imalloc", false},
      {"TRACE SUMMARY CTRLBLKS", false},
  };
  for (const auto& row : rows) {
    qk::Status status;
    ASSERT_EQ(qk_mem_debug_config(row.debug, &status), 0);
    scene.skip_log();
    kit::fail_request(1);
    EXPECT_EQ(add_block(pool, 10), nullptr);
    EXPECT_EQ(
        scene.log(),
        row.reported
            ? "   qk_mem_new_block: ERROR: malloc of 96 at app.c:12 for block failed: 12 Cannot allocate memory\n"
            : "")
        << row.debug;
  }
}

TEST(NewBlock, FailsForLackOfMemoryAtAHugeSize) {
  Scene scene("EXCEPTIONS FLUSH");
  StandaloneBlocks pool(64, {{101, 0, 50}});
  for (const std::size_t size : {SIZE_MAX, SIZE_MAX - 31, SIZE_MAX - 32, SIZE_MAX / 2 + 1}) {
    Qk_mem_error = 0;
    EXPECT_EQ(add_block(pool, size), nullptr) << size;
    EXPECT_EQ(qk_mem_error(), 5012) << size;
  }
  add_block(pool, SIZE_MAX - 99);
  EXPECT_TRUE(
      kit::contents("qkmem.log")
          .ends_with(
              "   qk_mem_new_block: ERROR: malloc of 18446744073709551548 at app.c:12 for block failed: 12 Cannot allocate memory\n"));
  EXPECT_EQ(pool.blocks(), "101:0-50");
  EXPECT_EQ(pool.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
}

TEST(NewBlock, IsFollowedByTheReportUnderCtrlblksIfRecorded) {
  Scene scene(Environment{"CTRLBLKS=qk_imalloc", "", "OPTIONS=MGMT"});
  StandaloneBlocks pool(64);
  scene.skip_log();
  add_block(pool, 10);
  EXPECT_EQ(scene.log(), "");
  pool->track_blocks = 1;
  add_block(pool, 10);
  EXPECT_NE(scene.log(), "");
  EXPECT_EQ(scene.log(), kit::normalized(kit::dump("", 0)));
}

}  // namespace
