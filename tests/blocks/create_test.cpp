#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::blocks_of;
using kit::Environment;
using kit::Pool;
using kit::Scene;

int create(const char* options, const char* tag = "AB") {
  return qk_mem_inew_handle(options, tag, "src/app.c", 12);
}

void configure(const char* debug) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
}

TEST(BlockManagedHandle, StartsWithTheRequestedBlocks) {
  struct {
    const char* options;
    const char* blocks;
    const char* data;
  } const rows[] = {
      {"BLOCKMGMT", "2048:0-0", "0 for 2080"},
      {"B", "2048:0-0", "0 for 2080"},
      {"blockmgmt,blockfree", "2048:0-0", "0 for 2080"},
      {"BLOCKMGMT BLOCKSIZE=64", "64:0-0", "0 for 96"},
      {"BLOCKMGMT BLOCKSIZE=64 BLOCKINITIAL=3", "64:0-0 64:0-0 64:0-0", "0 for 288"},
      {"BLOCKMGMT BLOCKINITIAL=0", "", "0 for 0"},
      {"BLOCKMGMT BLOCKINITIAL=-3", "", "0 for 0"},
      {"BLOCKMGMT BLOCKINITIAL=none", "", "0 for 0"},
      {"BLOCKMGMT BLOCKSIZE=0", "0:0-0", "0 for 32"},
      {"BLOCKMGMT BLOCKSIZE=100x", "100:0-0", "0 for 132"},
      {"BLOCKSIZE=64 BLOCKINITIAL=3", "", "0 for 0"},
      {"BLOCKFREE", "", "0 for 0"},
  };
  Scene scene;
  for (const auto& row : rows) {
    const int hid = create(row.options);
    ASSERT_EQ(hid, 3) << row.options;
    EXPECT_EQ(blocks_of(hid), row.blocks) << row.options;
    EXPECT_EQ(kit::data_of(hid), row.data) << row.options;
    EXPECT_EQ(kit::handle_of(hid).block_used, 0U) << row.options;
    ASSERT_EQ(qk_mem_idel_handle(hid, "lib/other.c", 80), 0);
    EXPECT_EQ(qk_mem_tag_size("AB"), 0) << row.options;
  }
}

TEST(BlockManagedHandle, StoresItsOptions) {
  Scene scene;
  const qk_mem_handle& handle = Pool("BLOCKMGMT BLOCKSIZE=64 BLOCKINITIAL=3").record();
  EXPECT_EQ(handle.blockmgmt, 'B');
  EXPECT_EQ(handle.blocksize, 64U);
  EXPECT_EQ(handle.blockfree, 0);
  EXPECT_EQ(handle.num_blocks, 3U);
  const qk_mem_handle& freeing = Pool("BLOCKMGMT BLOCKFREE").record();
  EXPECT_EQ(freeing.blocksize, 2048U);
  EXPECT_EQ(freeing.blockfree, 1);
  const qk_mem_handle& ordinary = Pool("BLOCKFREE BLOCKSIZE=64").record();
  EXPECT_EQ(ordinary.blockmgmt, 0);
  EXPECT_EQ(ordinary.blockfree, 1);
  EXPECT_EQ(ordinary.blocksize, 64U);
}

TEST(BlockManagedHandle, RecordsPiecesAndBlocksAsConfigured) {
  struct {
    const char* debug;
    const char* options;
    int track;
    int track_blocks;
  } const rows[] = {
      {"OFF", "BLOCKMGMT", 0, 0},
      {"OFF", "BLOCKMGMT BLOCKFREE", 1, 0},
      {"OFF", "BLOCKFREE", 1, 0},
      {"TRACE", "BLOCKMGMT", 0, 1},
      {"TRACE", "BLOCKMGMT BLOCKFREE", 1, 1},
      {"TRACE", "", 1, 0},
      {"EXCEPTIONS", "BLOCKMGMT", 0, 1},
      {"SUMMARY", "BLOCKMGMT BLOCKFREE", 1, 1},
      {"DEBUG", "BLOCKMGMT", 1, 1},
      {"DEBUG", "BLOCKMGMT BLOCKFREE", 1, 1},
      {"DEBUG", "", 1, 1},
  };
  Scene scene("EXCEPTIONS");
  for (const auto& row : rows) {
    configure(row.debug);
    const Pool pool(row.options);
    EXPECT_EQ(pool.record().track, row.track) << row.debug << ": " << row.options;
    EXPECT_EQ(pool.record().track_blocks, row.track_blocks) << row.debug << ": " << row.options;
  }
}

TEST(BlockManagedHandle, IsLoggedWithItsBlockSizeAndItsBlocks) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
  create("BLOCKMGMT BLOCKSIZE=64 BLOCKINITIAL=2");
  EXPECT_EQ(scene.log("qk_mem_inew_handle"), "   qk_mem_inew_handle:    3 N D B=64 app.c:12\n");
  EXPECT_EQ(scene.log("qk_mem_new_block"),
            "   qk_mem_new_block:      3 [p1] B 96 app.c:12\n"
            "   qk_mem_new_block:      3 [p2] B 96 app.c:12\n");
  EXPECT_EQ(scene.trace("NB"),
            "3 N [p0] 0 0 app.c 12 0\n"
            "3 B [p1] 1 96 app.c 12 96\n"
            "3 B [p2] 1 96 app.c 12 96\n");
  scene.skip_log();
  create("OVERHEAD AUTOFREE BLOCKMGMT BLOCKINITIAL=0");
  EXPECT_EQ(scene.log("qk_mem_inew_handle"), "   qk_mem_inew_handle:    4 N O A B=2048 app.c:12\n");
}

TEST(BlockManagedHandle, LogsItsBlocksUnderTheSwitchesOfCreation) {
  Scene scene("DEBUG=not,qk_mem_inew_handle");
  qk_mem_init();
  scene.skip_log();
  create("BLOCKMGMT");
  EXPECT_EQ(scene.log("qk_mem_new_block"), "");
  configure("EXCEPTIONS DEBUG=qk_mem_inew_handle");
  scene.skip_log();
  create("BLOCKMGMT");
  EXPECT_EQ(scene.log("qk_mem_new_block"), "   qk_mem_new_block:      4 [p1] B 2080 app.c:12\n");
}

TEST(BlockManagedHandle, IsFollowedByAReportForEachOfItsBlocks) {
  struct {
    const char* options;
    int reports;
  } const rows[] = {
      {"BLOCKMGMT", 1},
      {"BLOCKMGMT BLOCKINITIAL=3", 3},
      {"BLOCKMGMT BLOCKINITIAL=0", 1},
      {"", 1},
  };
  Scene scene(Environment{"CTRLBLKS=qk_mem_inew_handle", "", "OPTIONS=HEAPSIZE"});
  qk_mem_init();
  for (const auto& row : rows) {
    scene.skip_log();
    create(row.options);
    const std::string log = scene.log();
    int reports = 0;
    for (std::size_t at = 0; (at = log.find("Current heapsize:", at)) != std::string::npos; ++at) {
      ++reports;
    }
    EXPECT_EQ(reports, row.reports) << row.options;
  }
}

TEST(BlockManagedHandle, IsNotCreatedIfABlockCannotBeAllocated) {
  Scene scene;
  qk_mem_init();
  for (const int failing : {2, 3, 4}) {
    kit::fail_request(failing);
    EXPECT_EQ(create("BLOCKMGMT BLOCKSIZE=64 BLOCKINITIAL=3"), 0) << failing;
    EXPECT_EQ(qk_mem_error(), 5012) << failing;
    EXPECT_EQ(Qk_mem_num_handles, 2) << failing;
    EXPECT_EQ(Qk_mem_handles[2], nullptr) << failing;
    EXPECT_EQ(kit::tag_of("AB"), "0 for 0") << failing;
  }
}

TEST(BlockManagedHandle, ReportsAFailedBlockAndIsDeletedAgain) {
  Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
  kit::fail_request(2);
  EXPECT_EQ(create("BLOCKMGMT"), 0);
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_new_block: ERROR: malloc of 2080 at app.c:12 for block failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(scene.trace(),
            "3 N [p0] 0 0 app.c 12 0\n"
            "3 D [p0] 0 0 app.c 12 0\n");
}

TEST(BlockManagedHandle, FailsForLackOfMemoryAtANegativeBlockSize) {
  Scene scene("EXCEPTIONS FLUSH");
  qk_mem_init();
  for (const char* options : {"BLOCKMGMT BLOCKSIZE=-1", "BLOCKMGMT BLOCKSIZE=-32",
                              "BLOCKMGMT BLOCKSIZE=-33", "BLOCKMGMT BLOCKSIZE=-2147483648"}) {
    Qk_mem_error = 0;
    EXPECT_EQ(create(options), 0) << options;
    EXPECT_EQ(qk_mem_error(), 5012) << options;
    EXPECT_EQ(Qk_mem_num_handles, 2) << options;
  }
  create("BLOCKMGMT BLOCKSIZE=-100");
  EXPECT_TRUE(
      kit::contents("qkmem.log")
          .ends_with(
              "   qk_mem_new_block: ERROR: malloc of 18446744073709551548 at app.c:12 for block failed: 12 Cannot allocate memory\n"));
}

TEST(BlockManagedHandle, CannotAllocateAtANegativeBlockSize) {
  Scene scene;
  const Pool pool("BLOCKMGMT BLOCKSIZE=-1 BLOCKINITIAL=0");
  ASSERT_EQ(int{pool}, 3);
  EXPECT_EQ(qk_mem_imalloc(pool, 10, 8, "src/app.c", 12), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
}

TEST(BlockManagedHandle, GivesEachPieceABlockAtBlockSizeZero) {
  Scene scene;
  const Pool pool("BLOCKMGMT BLOCKSIZE=0 BLOCKINITIAL=0");
  for (const std::size_t size : {10, 20, 5}) {
    EXPECT_NE(qk_mem_imalloc(pool, size, 8, "src/app.c", 12), nullptr);
  }
  EXPECT_EQ(blocks_of(pool), "20:0-20 5:0-5 10:0-10");
  EXPECT_EQ(kit::data_of(pool), "0 for 131");
}

TEST(BlockManagedHandle, CanBeAnOverheadHandleWithALock) {
  Scene scene;
  const Pool pool("OVERHEAD AUTOFREE MULTITHREADED BLOCKMGMT BLOCKFREE");
  void* piece = qk_mem_imalloc(pool, 10, 8, "src/app.c", 12);
  EXPECT_EQ(blocks_of(pool), "2048:0-10");
  EXPECT_FALSE(pool.record().mtx->held());
  qk_mem_ifree(pool, piece, "src/app.c", 13);
  EXPECT_EQ(blocks_of(pool), "2048:0-0");
  EXPECT_FALSE(pool.record().mtx->held());
}

}  // namespace
