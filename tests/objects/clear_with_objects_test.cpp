#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/ledger.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Environment;
using kit::Ledger;
using kit::LoggingTracker;

/** Registers something at app.c:12. */
void register_ptr(int hid, int type, void* ptr, std::size_t size) {
  qk_mem_iregister(hid, type, ptr, nullptr, size, "src/app.c", 12);
}

int clear(int hid) { return qk_mem_iclear_handle(hid, "lib/other.c", 80000); }

/** The overhead bytes of a ledger's handle, without its eight arrays. */
std::size_t overhead_without_arrays(int hid) {
  return kit::handle_of(hid).overhead_amount - std::size_t{8} * 16 * 48;
}

/** Block-managed handles with objects, whose destruction is noted. Blocks take 96 bytes. */
class ClearWithObjects : public ::testing::Test {
 protected:
  ClearWithObjects() { kit::align_requests(); }

  LoggingTracker* tracker(const char* name, void* tracked) {
    return new LoggingTracker(name, tracked, destroyed_);
  }

  std::string destroyed_;
};

TEST_F(ClearWithObjects, ReleasesAndLogsEachByItsKind) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, std::malloc(10), 10);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("object", at(0x5000)), 40);
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker("array", at(0x6000)), 50);
  qk_mem_icalloc(ledger.pool, 2, 10, 16, "src/app.c", 13);
  ledger.skip_all();
  EXPECT_EQ(clear(ledger.pool), 0);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iclear_handle:    3 [p1] F other.c:80000; X 10 app.c:12\n"
            "   qk_mem_iclear_handle:    3 [p2] E other.c:80000; W 40 app.c:12\n"
            "   qk_mem_iclear_handle:    3 [p3] K other.c:80000; J 1/50 app.c:12\n"
            "   qk_mem_iclear_handle:    3 [p4] E other.c:80000; T 16 app.c:12\n"
            "   qk_mem_iclear_handle:    3 [p5] E other.c:80000; T 16 app.c:12\n"
            "   qk_mem_iclear_handle:    3 [p6] f other.c:80000; c 2/10 app.c:13\n"
            "   qk_mem_iclear_handle:    3 d other.c:80000; pool.c:7\n");
  EXPECT_EQ(ledger.trace(),
            "3 F [p1] 1 10 other.c 80000 -10\n"
            "3 E [p2] 1 40 other.c 80000 -40\n"
            "3 K [p3] 1 50 other.c 80000 -50\n"
            "3 E [p4] 1 16 other.c 80000 -16\n"
            "3 E [p5] 1 16 other.c 80000 -16\n"
            "3 f [p6] 2 10 other.c 80000 0\n"
            "3 d [p0] 0 0 other.c 80000 0\n");
  EXPECT_EQ(destroyed_, "object destroys its object\narray destroys its object\n");
}

TEST_F(ClearWithObjects, SubtractsTrackersBytesFromBothSums) {
  Ledger ledger(Environment{}, "BLOCKMGMT BLOCKSIZE=64");
  EXPECT_EQ(ledger.sums(), "handle 0 for 96, tag 0 for 96, events 0");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, std::malloc(10), 10);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("object", at(0x5000)), 40);
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker("array", at(0x6000)), 50);
  EXPECT_EQ(ledger.sums(), "handle 3 for 196, tag 3 for 196, events 5");
  EXPECT_EQ(overhead_without_arrays(ledger.pool), 32U);
  clear(ledger.pool);
  EXPECT_EQ(overhead_without_arrays(ledger.pool), 0U);
  EXPECT_EQ(ledger.sums(), "handle 4294967294 for 64, tag 4294967294 for 64, events 6")
      << "the block's 96 less two trackers of 16; all five records are removed as data";
}

TEST_F(ClearWithObjects, CanLowerTheSizeBelowZero) {
  Ledger ledger(Environment{}, "BLOCKMGMT BLOCKINITIAL=0");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("object", at(0x5000)), 40);
  clear(ledger.pool);
  EXPECT_EQ(qk_mem_isize(ledger.pool, "src/app.c", 14), static_cast<std::size_t>(-16));
}

TEST_F(ClearWithObjects, KeepsTheHandleAndItsBlocksForReuse) {
  Ledger ledger(Environment{"TRACE", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("first", at(0x5000)), 40);
  qk_mem_imalloc(ledger.pool, 20, 16, "src/app.c", 13);
  EXPECT_EQ(kit::blocks_of(ledger.pool), "64:0-20");
  clear(ledger.pool);
  EXPECT_EQ(kit::blocks_of(ledger.pool), "64:0-0");
  EXPECT_EQ(ledger.record(ledger.pool.record().blocks).substr(0, 15), "B 1/96 pool.c:7");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("second", at(0x5000)), 40);
  EXPECT_EQ(ledger.record(at(0x5000)), "W 1/40 app.c:12 event 4");
  clear(ledger.pool);
  EXPECT_EQ(destroyed_, "first destroys its object\nsecond destroys its object\n");
}

TEST_F(ClearWithObjects, ReleasesThemEvenIfPiecesAreNotRecorded) {
  Ledger ledger(Environment{}, "BLOCKMGMT");
  EXPECT_EQ(ledger.pool.record().track, 0);
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker("array", at(0x5000)), 40);
  EXPECT_EQ(clear(ledger.pool), 0);
  EXPECT_EQ(ledger.record(at(0x5000)), "none");
  EXPECT_EQ(destroyed_, "array destroys its object\n");
}

TEST_F(ClearWithObjects, DestroysThemInTheOrderOfArraysAndRecords) {
  Ledger ledger(Environment{}, "BLOCKMGMT");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("third", at(0x5020)), 1);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("first", at(0x5100)), 1);
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker("second", at(0x5080)), 1);
  clear(ledger.pool);
  EXPECT_EQ(destroyed_,
            "first destroys its object\nsecond destroys its object\n"
            "third destroys its object\n");
}

TEST_F(ClearWithObjects, ReleasesWhatIsRecordedTwiceOnce) {
  Ledger ledger(Environment{}, "BLOCKMGMT");
  void* const memory = std::malloc(10);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, memory, 10);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, memory, 10);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("first", at(0x5000)), 40);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("second", at(0x5000)), 40);
  LoggingTracker* const both = tracker("both", at(0x6000));
  register_ptr(ledger.pool, QK_MEM_ARRAY, both, 40);
  register_ptr(ledger.pool, QK_MEM_ARRAY, both, 40);
  clear(ledger.pool);
  EXPECT_EQ(destroyed_,
            "first destroys its object\nsecond is destroyed\nboth destroys its object\n");
}

TEST_F(ClearWithObjects, LeavesAnOrdinaryHandleAlone) {
  Ledger ledger("EXCEPTIONS");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker("object", at(0x5000)), 40);
  EXPECT_EQ(clear(ledger.pool), 5566);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_iclear_handle: ERROR: clear_handle on handle 3 with non-blockmgmt at other.c:80000\n");
  EXPECT_EQ(destroyed_, "");
  EXPECT_EQ(ledger.record(at(0x5000)), "W 1/40 app.c:12 event 1");
}

}  // namespace
