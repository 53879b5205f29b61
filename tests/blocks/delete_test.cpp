#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Pool;
using kit::Scene;

int destroy(int hid) { return qk_mem_idel_handle(hid, "lib/other.c", 80000); }

void* allocate(int hid, std::size_t size) { return qk_mem_imalloc(hid, size, 1, "src/app.c", 12); }

TEST(DeletionOfBlocks, FreesThemWithAllTheirPieces) {
  Scene scene;
  for (const char* options :
       {"BLOCKMGMT BLOCKSIZE=64", "BLOCKMGMT BLOCKSIZE=64 BLOCKFREE MULTITHREADED"}) {
    Pool keeper("BLOCKMGMT BLOCKSIZE=64", "AB");
    Pool pool(options, "AB");
    for (std::size_t size = 0; size < 300; ++size) allocate(pool, size);
    EXPECT_EQ(destroy(pool), 0);
    EXPECT_EQ(qk_mem_tag_size("AB"), 96);
    EXPECT_EQ(destroy(keeper), 0);
    EXPECT_EQ(qk_mem_tag_size("AB"), 0);
  }
}

TEST(DeletionOfBlocks, LogsNothingOfUnrecordedBlocks) {
  Scene scene;
  Pool pool("BLOCKMGMT BLOCKSIZE=64 BLOCKINITIAL=2");
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("DEBUG LOG=qkmem.log", &status), 0);
  scene.skip_log();
  destroy(pool);
  EXPECT_EQ(scene.log(), "   qk_mem_idel_handle:    3 D other.c:80000; pool.c:7\n");
}

/**
 * A handle that records its blocks and pieces but not itself, so that all released records are of
 * "app.c", line 12. It is deleted under DEBUG.
 */
class DeletionOfRecordedBlocks : public ::testing::Test {
 protected:
  DeletionOfRecordedBlocks() { pool_.record().track = 1; }

  void destroy_under_debug() {
    qk::Status status;
    ASSERT_EQ(qk_mem_debug_config("DEBUG", &status), 0);
    scene_.skip_log();
    scene_.skip_trace();
    Qk_mem_seq = 100;
    EXPECT_EQ(destroy(pool_), 0);
  }

  Scene scene_{Environment{"EXCEPTIONS", "HEAPSIZE DB", ""}};
  const Pool pool_{"BLOCKMGMT BLOCKSIZE=64 BLOCKINITIAL=0", "AB"};
};

TEST_F(DeletionOfRecordedBlocks, TracesPiecesThenBlocksThenArrays) {
  allocate(pool_, 10);
  EXPECT_EQ(kit::tag_of("AB"), "2 for 96");
  destroy_under_debug();
  EXPECT_EQ(scene_.log("qk_mem_idel_handle"),
            "   qk_mem_idel_handle:    3 [p1] f other.c:80000; m 10 app.c:12 (heap change)\n"
            "   qk_mem_idel_handle:    3 [p2] F other.c:80000; B 96 app.c:12 (heap change)\n"
            "   qk_mem_idel_handle:    3 [p3] F other.c:80000; P 16/48 app.c:12 (heap change)\n"
            "   qk_mem_idel_handle:    3 [p4] F other.c:80000; P 16/48 app.c:12 (heap change)\n"
            "   qk_mem_idel_handle:    3 D other.c:80000; pool.c:7 (heap change)\n");
  EXPECT_EQ(scene_.trace(),
            "3 f [p1] 1 10 other.c 80000 0\n"
            "3 F [p2] 1 96 other.c 80000 -96\n"
            "3 F [p3] 16 48 other.c 80000 -768\n"
            "3 F [p4] 16 48 other.c 80000 -768\n"
            "3 D [p0] 0 0 other.c 80000 0\n");
  EXPECT_EQ(kit::tag_of("AB"), "0 for 0");
  EXPECT_EQ(Qk_mem_seq, 101U);
}

TEST_F(DeletionOfRecordedBlocks, FreesThemInListOrder) {
  allocate(pool_, 10);
  allocate(pool_, 100);
  allocate(pool_, 60);
  allocate(pool_, 200);
  EXPECT_EQ(kit::blocks_of(pool_), "64:0-60 200:0-200 100:0-100 64:0-10");
  destroy_under_debug();
  const std::string rows = scene_.trace("F");
  EXPECT_EQ(rows.substr(0, rows.find(" 16 48 ")),
            "3 F [p1] 1 96 other.c 80000 -96\n"
            "3 F [p2] 1 232 other.c 80000 -232\n"
            "3 F [p3] 1 132 other.c 80000 -132\n"
            "3 F [p4] 1 96 other.c 80000 -96\n"
            "3 F [p5]");
  EXPECT_EQ(kit::tag_of("AB"), "0 for 0");
}

TEST_F(DeletionOfRecordedBlocks, DoesNotTraceABlockWithoutARecord) {
  allocate(pool_, 10);
  pool_.record().track_blocks = 0;
  allocate(pool_, 100);
  pool_.record().track_blocks = 1;
  destroy_under_debug();
  const std::string rows = scene_.trace("F");
  EXPECT_EQ(rows.substr(0, rows.find(" 16 48 ")),
            "3 F [p1] 1 96 other.c 80000 -96\n"
            "3 F [p2]");
  EXPECT_EQ(qk_mem_tag_size("AB"), 0);
}

TEST_F(DeletionOfRecordedBlocks, FreesExternalMemoryToo) {
  void* memory = std::malloc(24);
  kit::hold(pool_.record(), reinterpret_cast<std::uintptr_t>(memory), 'X', 3, 8, "app.c", 12);
  destroy_under_debug();
  EXPECT_EQ(scene_.log("qk_mem_idel_handle"),
            "   qk_mem_idel_handle:    3 [p1] F other.c:80000; X 8 app.c:12 (heap change)\n"
            "   qk_mem_idel_handle:    3 [p2] F other.c:80000; P 16/48 app.c:12 (heap change)\n"
            "   qk_mem_idel_handle:    3 D other.c:80000; pool.c:7 (heap change)\n");
  EXPECT_EQ(qk_mem_tag_size("AB"), 0);
}

TEST_F(DeletionOfRecordedBlocks, SkipsTheRecordsOfUntrackedPieces) {
  allocate(pool_, 10);
  pool_.record().track = 0;
  destroy_under_debug();
  EXPECT_EQ(scene_.trace("f"), "");
  EXPECT_EQ(scene_.trace(),
            "3 F [p1] 1 96 other.c 80000 -96\n"
            "3 F [p2] 16 48 other.c 80000 -768\n"
            "3 F [p3] 16 48 other.c 80000 -768\n"
            "3 D [p0] 0 0 other.c 80000 0\n");
}

}  // namespace
