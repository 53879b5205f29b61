#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <typeinfo>

#include "core/registry.h"
#include "table/pointer_table.h"
#include "tests/kit/blocks.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::at;
using kit::Environment;
using kit::Ledger;

int clear(int hid) { return qk_mem_iclear_handle(hid, "lib/other.c", 80000); }

/** Memory whose address belongs in pointer array 0. It is released by free. */
void* memory_for_array_0(std::size_t size) {
  return std::aligned_alloc(128, (size + 127) / 128 * 128);
}

qk_mem_ptr& hold(const Ledger& ledger, const void* address, char kind, std::uint64_t count = 1,
                 std::uint64_t size = 10, int line = 5) {
  return kit::hold(ledger.pool.record(), reinterpret_cast<std::uintptr_t>(address), kind, count,
                   size, "app.c", line);
}

/** Counts how often it is destroyed. */
class Tracker : public qk::MemTracker {
 public:
  explicit Tracker(int& destroyed) : destroyed_(destroyed) {}
  ~Tracker() override { ++destroyed_; }
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(int); }
  [[nodiscard]] bool same_type(const qk::MemTracker&) const override { return true; }

 private:
  int& destroyed_;
};

/** A block-managed handle, with a block of 96 bytes, whose pieces are recorded. */
class ClearedRecord : public ::testing::Test {
 protected:
  ClearedRecord()
      : ledger_(Environment{"DEBUG", "HEAPSIZE DB", ""}, "BLOCKMGMT BLOCKFREE BLOCKSIZE=64") {}

  [[nodiscard]] std::string sums() const {
    return "data " + kit::data_of(ledger_.pool) + ", overhead " + kit::overhead_of(ledger_.pool) +
           ", tag " + kit::tag_of("AB");
  }

  /** The log of a clear without its last line. */
  std::string log_of_clear() {
    ledger_.skip_all();
    EXPECT_EQ(clear(ledger_.pool), 0);
    const std::string log = ledger_.log();
    const std::string end =
        "   qk_mem_iclear_handle:    3 d other.c:80000; pool.c:7 (heap change)\n";
    EXPECT_TRUE(log.ends_with(end)) << log;
    return log.substr(0, log.size() - end.size());
  }

  Ledger ledger_;
};

/** The bytes of the eight pointer arrays and of the handle's own record. */
const std::string kOwn = std::to_string(8 * 16 * 48 + sizeof(qk_mem_handle));
std::string own_and(int bytes) {
  return std::to_string(8 * 16 * 48 + sizeof(qk_mem_handle) + static_cast<std::size_t>(bytes));
}

struct KindRow {
  char kind;
  const char* log;
  const char* trace;
  const char* data_before;  // 96 of them are the block's
  const char* data_after;
};

TEST_F(ClearedRecord, IsReleasedAndLoggedByItsKind) {
  const KindRow rows[] = {
      {'m', "[p1] f other.c:80000; m 10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n", "2 for 116",
       "1 for 116"},
      {'c', "[p1] f other.c:80000; c 2/10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n", "2 for 136",
       "1 for 136"},
      {'r', "[p1] f other.c:80000; r 10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n", "2 for 156",
       "1 for 156"},
      {'s', "[p1] f other.c:80000; s 10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n", "2 for 176",
       "1 for 176"},
      {'W', "[p1] E other.c:80000; W 10 app.c:5", "3 E [p1] 2 10 other.c 80000 -20\n", "2 for 196",
       "1 for 176"},
      {'J', "[p1] K other.c:80000; J 2/10 app.c:5", "3 K [p1] 2 10 other.c 80000 -20\n",
       "2 for 196", "1 for 176"},
      {'X', "[p1] F other.c:80000; X 10 app.c:5", "3 F [p1] 2 10 other.c 80000 -20\n", "2 for 196",
       "1 for 176"},
  };
  for (const KindRow& row : rows) {
    const void* address = row.kind == 'X' ? memory_for_array_0(20) : at(0x1000);
    hold(ledger_, address, row.kind, 2);
    EXPECT_EQ(kit::data_of(ledger_.pool), row.data_before) << row.kind;
    EXPECT_EQ(log_of_clear(),
              "   qk_mem_iclear_handle:    3 " + std::string(row.log) + " (heap change)\n");
    EXPECT_EQ(ledger_.trace(), std::string(row.trace) + "3 d [p0] 0 0 other.c 80000 0\n");
    EXPECT_EQ(ledger_.record(address), "none");
    EXPECT_EQ(kit::data_of(ledger_.pool), row.data_after) << row.kind;
    EXPECT_EQ(kit::tag_of("AB"), row.data_after) << row.kind;
    EXPECT_EQ(kit::overhead_of(ledger_.pool), "9 for " + kOwn);
    EXPECT_EQ(Qk_mem_seq, 101U);
  }
}

TEST_F(ClearedRecord, SubtractsATrackersBytesFromBothSums) {
  hold(ledger_, at(0x1000), 'W', 1, 50);
  hold(ledger_, at(0x2000), 'T', 1, 16);
  EXPECT_EQ(sums(), "data 2 for 146, overhead 10 for " + own_and(16) + ", tag 2 for 146");
  EXPECT_EQ(log_of_clear(),
            "   qk_mem_iclear_handle:    3 [p1] E other.c:80000; W 50 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p2] E other.c:80000; T 16 app.c:5 (heap change)\n");
  EXPECT_EQ(ledger_.trace(),
            "3 E [p1] 1 50 other.c 80000 -50\n"
            "3 E [p2] 1 16 other.c 80000 -16\n"
            "3 d [p0] 0 0 other.c 80000 0\n");
  EXPECT_EQ(sums(), "data 0 for 80, overhead 10 for " + kOwn + ", tag 0 for 80")
      << "the block's bytes less the tracker's; both quantities are taken off the data";
}

TEST_F(ClearedRecord, IsReleasedInOrderOfArraysAndSlots) {
  hold(ledger_, at(0x1030), 'm', 1, 1);
  hold(ledger_, at(0x2010), 'm', 1, 2);
  hold(ledger_, at(0x3030), 'm', 1, 3);
  hold(ledger_, at(0x4000), 'm', 1, 4);
  hold(ledger_, at(0x1070), 'm', 1, 5);
  hold(ledger_, at(0x1010), 'm', 1, 6);
  EXPECT_EQ(log_of_clear(),
            "   qk_mem_iclear_handle:    3 [p1] f other.c:80000; m 4 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p2] f other.c:80000; m 2 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p3] f other.c:80000; m 6 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p4] f other.c:80000; m 1 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p5] f other.c:80000; m 3 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p6] f other.c:80000; m 5 app.c:5 (heap change)\n");
}

TEST_F(ClearedRecord, IsNeverABlockOrTheHandlesOwnMemory) {
  const void* block = ledger_.pool.record().blocks;
  const std::string block_record = ledger_.record(block);
  const std::string handle_record = ledger_.record(&ledger_.pool.record());
  hold(ledger_, at(0x1000), 'H', 1, 7);
  hold(ledger_, at(0x2000), 'M', 1, 8);
  EXPECT_EQ(log_of_clear(), "");
  EXPECT_EQ(ledger_.trace(), "3 d [p0] 0 0 other.c 80000 0\n");
  EXPECT_EQ(ledger_.record(block).substr(0, 18), block_record.substr(0, 18));
  EXPECT_EQ(ledger_.record(&ledger_.pool.record()).substr(0, 12), handle_record.substr(0, 12));
  EXPECT_NE(ledger_.record(at(0x1000)), "none");
  EXPECT_NE(ledger_.record(at(0x2000)), "none")
      << "no block-managed handle makes records of this kind";
}

TEST_F(ClearedRecord, ShowsTheLow16BitsOfItsLine) {
  hold(ledger_, at(0x1000), 'm', 1, 10, 70000);
  EXPECT_EQ(log_of_clear(),
            "   qk_mem_iclear_handle:    3 [p1] f other.c:80000; m 10 app.c:4464 (heap change)\n");
}

TEST_F(ClearedRecord, DeletesItsTrackerOnce) {
  for (const char kind : {'W', 'J'}) {
    int destroyed = 0;
    hold(ledger_, at(0x1000), kind).tracker = new Tracker(destroyed);
    log_of_clear();
    EXPECT_EQ(destroyed, 1) << kind;
    log_of_clear();
    EXPECT_EQ(destroyed, 1) << kind;
  }
}

TEST_F(ClearedRecord, IsReleasedOnceIfRecordedTwice) {
  int destroyed = 0;
  auto* tracker = new Tracker(destroyed);
  hold(ledger_, at(0x1000), 'W').tracker = tracker;
  hold(ledger_, at(0x1000), 'W').tracker = tracker;
  const void* memory = memory_for_array_0(10);
  hold(ledger_, memory, 'X');
  hold(ledger_, memory, 'X');
  EXPECT_EQ(kit::data_of(ledger_.pool), "5 for 136");
  EXPECT_EQ(log_of_clear(),
            "   qk_mem_iclear_handle:    3 [p1] E other.c:80000; W 10 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p1] E other.c:80000; W 10 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p2] F other.c:80000; X 10 app.c:5 (heap change)\n"
            "   qk_mem_iclear_handle:    3 [p2] F other.c:80000; X 10 app.c:5 (heap change)\n");
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(kit::data_of(ledger_.pool), "1 for 96");
}

TEST(ClearHandle, SkipsRecordsUnlessTrackedOrRegistered) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  hold(ledger, at(0x1000), 'm');
  ledger.skip_all();
  clear(ledger.pool);
  EXPECT_NE(ledger.record(at(0x1000)), "none");
  EXPECT_EQ(ledger.trace(), "3 d [p0] 0 0 other.c 80000 0\n");
  ledger.pool.record().registered = 1;
  clear(ledger.pool);
  EXPECT_EQ(ledger.record(at(0x1000)), "none");
  EXPECT_EQ(ledger.trace("f"), "3 f [p1] 1 10 other.c 80000 0\n");
}

}  // namespace
