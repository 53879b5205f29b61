#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/blocks.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::Marks;
using kit::Pool;
using kit::Scene;
using kit::StandaloneBlocks;

void* allocate(StandaloneBlocks& pool, std::size_t size, int alignment = 1) {
  return qk_mem_block_alloc(pool, size, alignment, "src/app.c", 12, &Qk_mem_debug[4]);
}

struct Request {
  std::size_t size;
  int alignment;
};

struct Row {
  std::initializer_list<Marks> before;
  Request request;
  const char* place;
  const char* after;
  std::uint64_t used;  // bytes handed out, padding included
};

/** Makes each request on a handle with blocks of 64 bytes. */
void expect_places(std::initializer_list<Row> rows) {
  for (const Row& row : rows) {
    StandaloneBlocks pool(64, row.before);
    const std::string before = pool.blocks();
    const void* piece = allocate(pool, row.request.size, row.request.alignment);
    const std::string what = std::to_string(row.request.size) + " bytes aligned to " +
                             std::to_string(row.request.alignment) + " in " + before;
    EXPECT_EQ(pool.position(piece), row.place) << what;
    EXPECT_EQ(pool.blocks(), row.after) << what;
    EXPECT_EQ(pool->block_used, row.used) << what;
  }
}

TEST(Piece, FollowsTheLastOnePaddedToItsAlignment) {
  Scene scene;
  expect_places({
      {{{64, 0, 0}}, {10, 1}, "block 1 at 0", "64:0-10", 10},
      {{{64, 0, 0}}, {10, 16}, "block 1 at 0", "64:0-10", 10},
      {{{64, 0, 3}}, {8, 1}, "block 1 at 3", "64:0-11", 8},
      {{{64, 0, 3}}, {8, 2}, "block 1 at 4", "64:0-12", 9},
      {{{64, 0, 3}}, {8, 4}, "block 1 at 4", "64:0-12", 9},
      {{{64, 0, 3}}, {8, 8}, "block 1 at 8", "64:0-16", 13},
      {{{64, 0, 3}}, {8, 16}, "block 1 at 16", "64:0-24", 21},
      {{{64, 0, 17}}, {8, 2}, "block 1 at 18", "64:0-26", 9},
      {{{64, 0, 17}}, {8, 4}, "block 1 at 20", "64:0-28", 11},
      {{{64, 0, 17}}, {8, 8}, "block 1 at 24", "64:0-32", 15},
      {{{64, 0, 17}}, {8, 16}, "block 1 at 32", "64:0-40", 23},
      {{{64, 0, 16}}, {8, 16}, "block 1 at 16", "64:0-24", 8},
      {{{64, 5, 17}}, {8, 4}, "block 1 at 20", "64:5-28", 11},
  });
}

TEST(Piece, CanHaveAnUnusualAlignmentInsideItsBlock) {
  Scene scene;
  expect_places({
      {{{64, 0, 1}}, {8, 3}, "block 1 at 3", "64:0-11", 10},
      {{{64, 0, 3}}, {8, 3}, "block 1 at 3", "64:0-11", 8},
      {{{64, 0, 5}}, {8, 5}, "block 1 at 5", "64:0-13", 8},
      {{{64, 0, 1}}, {8, 32}, "block 1 at 32", "64:0-40", 39},
      {{{64, 0, 1}}, {8, 48}, "block 1 at 48", "64:0-56", 55},
      {{{64, 40, 60}}, {8, 3}, "block 1 at 30", "64:30-60", 10},
      {{{64, 50, 60}}, {8, 32}, "block 1 at 32", "64:32-60", 18},
  });
}

TEST(Piece, CanFillABlockToItsLastByte) {
  Scene scene;
  expect_places({
      {{{64, 0, 0}}, {64, 16}, "block 1 at 0", "64:0-64", 64},
      {{{64, 0, 3}}, {48, 16}, "block 1 at 16", "64:0-64", 61},
      {{{64, 0, 63}}, {1, 1}, "block 1 at 63", "64:0-64", 1},
      {{{64, 0, 33}}, {16, 16}, "block 1 at 48", "64:0-64", 31},
  });
}

TEST(Piece, GoesWhereALargerOneOfItsClassHadNoRoom) {
  Scene scene;
  StandaloneBlocks pool(64, {{70, 0, 60}, {64, 0, 30}});
  EXPECT_EQ(pool.position(allocate(pool, 10, 16)), "block 2 at 32");
  EXPECT_EQ(pool.position(allocate(pool, 6, 16)), "block 1 at 64");
  EXPECT_EQ(pool.position(allocate(pool, 1, 16)), "block 2 at 48");
  EXPECT_EQ(pool.blocks(), "70:0-70 64:0-49");
}

TEST(Piece, GoesIntoANewBlockWhereALargerOneHadNoRoom) {
  Scene scene;
  const Pool pool("BLOCKMGMT BLOCKSIZE=70 BLOCKINITIAL=0");
  const auto take = [&](std::size_t size) {
    return static_cast<char*>(qk_mem_imalloc(pool, size, 16, "src/app.c", 12));
  };
  const char* in_old_block = take(40);
  const char* in_new_block = take(60);
  EXPECT_EQ(take(10), in_old_block + 48);
  EXPECT_EQ(take(6), in_new_block + 64);
  EXPECT_EQ(take(1), in_old_block + 64);
}

TEST(Piece, LiesBelowTheFirstOneIfThereIsNoRoomAbove) {
  Scene scene;
  expect_places({
      {{{64, 30, 60}}, {8, 1}, "block 1 at 22", "64:22-60", 8},
      {{{64, 30, 60}}, {8, 2}, "block 1 at 22", "64:22-60", 8},
      {{{64, 30, 60}}, {8, 4}, "block 1 at 20", "64:20-60", 10},
      {{{64, 30, 60}}, {8, 8}, "block 1 at 16", "64:16-60", 14},
      {{{64, 30, 60}}, {8, 16}, "block 1 at 16", "64:16-60", 14},
      {{{64, 32, 60}}, {8, 8}, "block 1 at 24", "64:24-60", 8},
      {{{64, 30, 60}}, {30, 1}, "block 1 at 0", "64:0-60", 30},
      {{{64, 30, 60}}, {30, 16}, "block 1 at 0", "64:0-60", 30},
      {{{64, 31, 60}}, {30, 16}, "block 1 at 0", "64:0-60", 31},
      {{{64, 30, 60}}, {5, 1}, "block 1 at 25", "64:25-60", 5},
      {{{64, 30, 60}}, {4, 1}, "block 1 at 60", "64:30-64", 4},
      {{{64, 30, 57}}, {4, 4}, "block 1 at 60", "64:30-64", 7},
      {{{64, 30, 57}}, {5, 4}, "block 1 at 24", "64:24-57", 6},
      {{{64, 30, 64}}, {8, 8}, "block 1 at 16", "64:16-64", 14},
  });
}

TEST(Piece, LiesInTheFirstBlockThatHasRoomAtEitherEnd) {
  Scene scene;
  expect_places({
      {{{64, 0, 10}, {65, 0, 0}}, {20, 1}, "block 1 at 10", "64:0-30 65:0-0", 20},
      {{{64, 0, 60}, {65, 0, 5}}, {20, 1}, "block 2 at 5", "64:0-60 65:0-25", 20},
      {{{64, 30, 60}, {65, 0, 5}}, {20, 1}, "block 1 at 10", "64:10-60 65:0-5", 20},
      {{{64, 19, 60}, {65, 20, 65}, {66, 0, 0}},
       {20, 1},
       "block 2 at 0",
       "64:19-60 65:0-65 66:0-0",
       20},
      {{{64, 19, 60}, {65, 0, 65}, {66, 0, 46}},
       {20, 1},
       "block 3 at 46",
       "64:19-60 65:0-65 66:0-66",
       20},
      {{{64, 0, 41}, {65, 0, 0}}, {20, 4}, "block 1 at 44", "64:0-64 65:0-0", 23},
      {{{64, 0, 41}, {65, 0, 0}}, {20, 8}, "block 2 at 0", "64:0-41 65:0-20", 20},
  });
}

TEST(Piece, LiesAtTheStartOfANewBlockIfNoneHasRoom) {
  Scene scene;
  expect_places({
      {{}, {10, 16}, "block 1 at 0", "64:0-10", 10},
      {{}, {64, 16}, "block 1 at 0", "64:0-64", 64},
      {{}, {100, 32}, "block 1 at 0", "100:0-100", 100},
      {{{65, 0, 60}}, {10, 16}, "block 1 at 0", "64:0-10 65:0-60", 10},
      {{{65, 0, 60}}, {100, 16}, "block 1 at 0", "100:0-100 65:0-60", 100},
      {{{65, 0, 60}, {66, 0, 66}}, {100, 16}, "block 2 at 0", "65:0-60 100:0-100 66:0-66", 100},
      {{{65, 0, 60}}, {10, INT_MAX}, "block 1 at 0", "64:0-10 65:0-60", 10},
  });
}

TEST(Piece, FitsInEveryBlockIfItHasNoBytes) {
  Scene scene;
  expect_places({
      {{}, {0, 16}, "block 1 at 0", "64:0-0", 0},
      {{{64, 0, 64}, {65, 0, 0}}, {0, 1}, "block 1 at 64", "64:0-64 65:0-0", 0},
      {{{64, 0, 64}, {65, 0, 0}}, {0, 16}, "block 1 at 64", "64:0-64 65:0-0", 0},
      {{{64, 0, 3}}, {0, 16}, "block 1 at 16", "64:0-16", 13},
      {{{65, 40, 65}}, {0, 16}, "block 1 at 32", "65:32-65", 8},
      {{{65, 0, 65}}, {0, 16}, "block 1 at 0", "65:0-65", 0},
  });
}

TEST(Piece, FitsNowhereIfItsSizeWouldWrap) {
  Scene scene;
  const Marks blocks[] = {{64, 0, 0}, {64, 0, 5}, {64, 30, 60}, {64, 64, 64}, {64, 1, 64}};
  for (const Marks& marks : blocks) {
    for (const std::size_t size : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 4, SIZE_MAX - 15,
                                   SIZE_MAX - 29, SIZE_MAX - 32, SIZE_MAX - 63, SIZE_MAX / 2 + 1}) {
      for (const int alignment : {1, 2, 4, 8, 16, 32, 3, INT_MAX}) {
        StandaloneBlocks pool(64, {marks});
        const std::string before = pool.blocks();
        Qk_mem_error = 0;
        ASSERT_EQ(allocate(pool, size, alignment), nullptr) << size << " in " << before;
        ASSERT_EQ(qk_mem_error(), 5012) << size << " in " << before;
        ASSERT_EQ(pool.blocks(), before) << size << " aligned to " << alignment;
        ASSERT_EQ(pool->block_used, 0U);
        ASSERT_EQ(pool->num_blocks, 0U);
      }
    }
  }
}

TEST(Piece, IsRefusedWithoutAPositiveAlignment) {
  Scene scene("EXCEPTIONS");
  StandaloneBlocks pool(64, {{64, 30, 41}});
  scene.skip_log();
  for (const int alignment : {0, -1, -16, INT_MIN}) {
    Qk_mem_error = 0;
    EXPECT_EQ(allocate(pool, 8, alignment), nullptr) << alignment;
    EXPECT_EQ(qk_mem_error(), 5022) << alignment;
  }
  EXPECT_EQ(pool.blocks(), "64:30-41");
  EXPECT_EQ(pool->block_used, 0U);
  EXPECT_EQ(scene.log(), "");
}

TEST(Piece, FailsIfItsNewBlockCannotBeAllocated) {
  Scene scene("EXCEPTIONS");
  StandaloneBlocks pool(64, {{65, 0, 60}});
  scene.skip_log();
  kit::fail_request(1);
  EXPECT_EQ(allocate(pool, 100, 8), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(pool.blocks(), "65:0-60");
  EXPECT_EQ(pool->block_used, 0U);
  EXPECT_EQ(pool.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_new_block: ERROR: malloc of 132 at app.c:12 for block failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(pool.position(allocate(pool, 5, 1)), "block 1 at 60");
}

TEST(Piece, FindsRoomAfterAFailedRequest) {
  Scene scene;
  StandaloneBlocks pool(64, {{64, 0, 50}, {65, 0, 40}, {66, 0, 30}});
  kit::fail_request(1);
  EXPECT_EQ(allocate(pool, 40), nullptr);
  EXPECT_EQ(pool.position(allocate(pool, 36)), "block 3 at 30");
  EXPECT_EQ(pool.position(allocate(pool, 25)), "block 2 at 40");
  EXPECT_EQ(pool.position(allocate(pool, 14)), "block 1 at 50");
  EXPECT_EQ(pool.blocks(), "64:0-64 65:0-65 66:0-66");
}

TEST(Piece, LeavesFiveBytesOfPaddingAfterThreeBytes) {
  Scene scene;
  Pool pool("BLOCKMGMT BLOCKSIZE=64", "AB");
  const void* first = qk_mem_imalloc(pool, 3, 1, "src/app.c", 12);
  const void* second = qk_mem_imalloc(pool, 8, 8, "src/app.c", 13);
  EXPECT_EQ(kit::position_of(pool, first), "block 1 at 0");
  EXPECT_EQ(kit::position_of(pool, second), "block 1 at 8");
  EXPECT_EQ(kit::blocks_of(pool), "64:0-16");
  EXPECT_EQ(pool.record().block_used, 16U);
  EXPECT_EQ(kit::data_of(pool), "0 for 96") << "the handle is charged for its block alone";
  EXPECT_EQ(kit::tag_of("AB"), "0 for 96");
}

TEST(Piece, IsPlacedInTheBlocksOfARealHandleToo) {
  Scene scene;
  Pool pool("BLOCKMGMT BLOCKSIZE=64", "AB");
  struct {
    Request request;
    const char* place;
    const char* after;
    const char* data;
  } const steps[] = {
      {{40, 16}, "block 1 at 0", "64:0-40", "0 for 96"},
      {{20, 16}, "block 1 at 0", "64:0-20 64:0-40", "0 for 192"},
      {{16, 16}, "block 1 at 32", "64:0-48 64:0-40", "0 for 192"},
      {{16, 8}, "block 1 at 48", "64:0-64 64:0-40", "0 for 192"},
      {{16, 8}, "block 2 at 40", "64:0-64 64:0-56", "0 for 192"},
      {{64, 1}, "block 1 at 0", "64:0-64 64:0-64 64:0-56", "0 for 288"},
      {{100, 1}, "block 2 at 0", "64:0-64 100:0-100 64:0-64 64:0-56", "0 for 420"},
      {{8, 1}, "block 4 at 56", "64:0-64 100:0-100 64:0-64 64:0-64", "0 for 420"},
      {{1, 1}, "block 1 at 0", "64:0-1 64:0-64 100:0-100 64:0-64 64:0-64", "0 for 516"},
  };
  for (const auto& step : steps) {
    void* piece = qk_mem_imalloc(pool, step.request.size, step.request.alignment, "src/app.c", 12);
    std::memset(piece, 7, step.request.size);
    EXPECT_EQ(kit::position_of(pool, piece), step.place);
    EXPECT_EQ(kit::blocks_of(pool), step.after);
    EXPECT_EQ(kit::data_of(pool), step.data);
    EXPECT_EQ(kit::tag_of("AB"), step.data);
  }
  EXPECT_EQ(pool.record().num_blocks, 5U);
  EXPECT_EQ(pool.record().block_used, 293U);
  EXPECT_EQ(qk_mem_tag_size("AB"), 516);
  EXPECT_EQ(qk_mem_isize(pool, "src/app.c", 12), 516U);
}

}  // namespace
