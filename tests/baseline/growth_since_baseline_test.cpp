#include <gtest/gtest.h>

#include <string>

#include "core/records.h"
#include "core/registry.h"
#include "core/switches.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::hold;
using kit::Ledger;
using kit::Pool;
using kit::report;
using kit::Scene;
using kit::sections;
using kit::Stage;

constexpr unsigned kGrowth = QK_MEM_DUMP_GROWTH;
constexpr char kNoGrowth[] = "No memory growth since baseline\n";

std::string new_pointers() { return sections("", kGrowth | QK_MEM_DUMP_POINTERS); }

void* allocate(int hid, std::size_t size, int line) {
  return qk_mem_imalloc(hid, size, 16, "app.c", line);
}

TEST(Growth, IsWhatWasAllocatedSinceTheBaseline) {
  Ledger ledger("TRACE");
  allocate(ledger.pool, 10, 1);
  qk_mem_baseline("");
  allocate(ledger.pool, 20, 2);
  EXPECT_EQ(new_pointers(),
            "Data handle pointers\n"
            "   +   3 AB p1               M     1       20       20     102 app.c:2\n");
}

TEST(Growth, IsNothingRightAfterABaseline) {
  Ledger ledger("TRACE");
  allocate(ledger.pool, 10, 1);
  allocate(QK_MEM_DATA_HANDLE, 10, 1);
  qk_mem_baseline("");
  EXPECT_EQ(report("", kGrowth | 0x3f), kNoGrowth);
  EXPECT_EQ(report("", kGrowth | QK_MEM_DUMP_TERSE | 0x3f), "");
}

TEST(Growth, ExcludesWhatWasFreed) {
  Ledger ledger("TRACE");
  void* memory = allocate(ledger.pool, 10, 1);
  qk_mem_baseline("");
  qk_mem_ifree(ledger.pool, memory, "app.c", 2);
  EXPECT_EQ(report("", kGrowth | 0x3f), kNoGrowth);
}

TEST(Growth, IncludesAPieceAllocatedAgainAtItsOldAddress) {
  const Scene scene("TRACE");
  const Pool pool("BLOCKMGMT BLOCKFREE");
  void* before = allocate(pool, 64, 1);
  qk_mem_baseline("");
  qk_mem_ifree(pool, before, "app.c", 2);
  Qk_mem_seq = 100;
  ASSERT_EQ(allocate(pool, 64, 3), before);
  EXPECT_EQ(new_pointers(),
            "Data handle pointers\n"
            "   +   3    p1               m     1       64       64     101 app.c:3\n");
}

TEST(Growth, IncludesMemoryThatWasRegisteredAgain) {
  Ledger ledger("TRACE");
  static char memory[8];
  qk_mem_iregister(ledger.pool, QK_MEM_EXTERNAL, memory, nullptr, 8, "app.c", 1);
  qk_mem_baseline("");
  qk_mem_ideregister(ledger.pool, QK_MEM_EXTERNAL, memory, "app.c", 2);
  EXPECT_EQ(report("", kGrowth), kNoGrowth);
  qk_mem_iregister(ledger.pool, QK_MEM_EXTERNAL, memory, nullptr, 8, "app.c", 3);
  EXPECT_EQ(new_pointers(),
            "Data handle pointers\n"
            "   +   3 AB p1               X     1        8        8     103 app.c:3\n");
}

TEST(Growth, IncludesAResizedPointer) {
  Ledger ledger("TRACE");
  void* memory = allocate(ledger.pool, 100, 1);
  qk_mem_baseline("");
  qk_mem_irealloc(ledger.pool, memory, 90, 16, "app.c", 2);
  EXPECT_EQ(new_pointers(),
            "Data handle pointers\n"
            "   +   3 AB p1               R     1       90       90     102 app.c:2\n");
}

TEST(Growth, ExcludesAPointerWhoseResizeFailed) {
  Ledger ledger("TRACE");
  void* memory = allocate(ledger.pool, 100, 1);
  qk_mem_baseline("");
  kit::fail_request(1);
  EXPECT_EQ(qk_mem_irealloc(ledger.pool, memory, 9000, 16, "app.c", 2), nullptr);
  ASSERT_TRUE(kit::has_failed());
  EXPECT_EQ(report("", kGrowth | 0x3f), kNoGrowth);
}

TEST(Growth, IncludesABlockEvenIfItsPiecesAreNotRecorded) {
  const Scene scene("TRACE");
  const Pool pool("BLOCKMGMT BLOCKSIZE=1024");
  kit::make_arrays(pool);
  allocate(pool, 1000, 1);
  qk_mem_baseline("");
  allocate(pool, 8, 2);
  EXPECT_EQ(report("", kGrowth), kNoGrowth);
  Qk_mem_seq = 100;
  allocate(pool, 1000, 3);
  EXPECT_EQ(sections("", kGrowth | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS),
            "Data handle blocks\n"
            "   +   3    p1               B     1     1056     1056     101 app.c:3\n");
}

/** A tracker of an object that is never destroyed. */
class Tracker : public qk::MemTracker {
 public:
  explicit Tracker(void* object) { address = object; }
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(int); }
  [[nodiscard]] bool same_type(const MemTracker& other) const override {
    return other.tracked_type() == typeid(int);
  }
};

TEST(Growth, IncludesARegisteredObjectButNotItsTracker) {
  Ledger ledger("TRACE");
  static int object = 0;
  static Tracker tracker(&object);
  qk_mem_baseline("");
  qk_mem_tracker(&ledger.pool.record(), &tracker, 'W', "app.c", 1,
                 &qk::mem::switches_of(qk::mem::Routine::kRegister));
  EXPECT_EQ(report("", kGrowth | 0x3f), kNoGrowth);
  qk_mem_iregister(ledger.pool, QK_MEM_OBJECT, &tracker, nullptr, 4, "app.c", 2);
  EXPECT_EQ(new_pointers(),
            "Data handle pointers\n"
            "   +   3 AB p1               W     1        4        4     102 app.c:2\n");
}

TEST(Growth, IncludesAHandleThatReusesADeletedNumber) {
  const Scene scene("TRACE");
  const int before = qk_mem_inew_handle("", "AB", "app.c", 1);
  qk_mem_baseline("");
  qk_mem_idel_handle(before, "app.c", 2);
  EXPECT_EQ(report("", kGrowth), kNoGrowth);
  EXPECT_EQ(qk_mem_inew_handle("", "AB", "app.c", 3), before);
  kit::handle_of(before).seq = 77;
  EXPECT_EQ(sections("", kGrowth | QK_MEM_DUMP_HANDLES),
            "Data handles\n"
            "   +   3 AB                        0                 0      77 app.c:3\n");
}

TEST(Growth, IncludesOverheadHandlesThatNoBaselineCovers) {
  Stage stage;
  hold(stage.handle(1, 'O', "L"), 0x1000, 'M', 1, 11);
  hold(stage.handle(2), 0x1000, 'M', 1, 22);
  qk_mem_baseline("TYPE=DATA");
  EXPECT_EQ(sections("", kGrowth | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Overhead handles\n"
            "   +   1  L                        1                11       1 made.c:100\n"
            "Overhead handle pointers\n"
            "   +   1  L 0000000000001000 M     1       11       11       3 app.c:1\n");
}

TEST(Marks, StayOnAGrowingArrayAndAreMissingOnANewOne) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  for (int i = 0; i < 15; ++i) hold(handle, 0x1000 + 0x80U * static_cast<unsigned>(i), 'M', 1, 1);
  qk_mem_baseline("");
  hold(handle, 0x1780, 'H', 1, 1);
  hold(handle, 0x1010, 'H', 1, 1);
  EXPECT_EQ(sections("", QK_MEM_DUMP_MGMT),
            "Data handle management\n"
            "       1    p1               P    80       48     3840      18 app.c:1\n"
            "   +   1    0000000000001780 H     1        1        1      19 app.c:1\n"
            "   +   1    p2               P    16       48      768      20 app.c:1\n"
            "   +   1    0000000000001010 H     1        1        1      21 app.c:1\n");
  EXPECT_EQ(report("", kGrowth), kNoGrowth);
}

TEST(Marks, ShowWhetherAHandleHeldAnythingAtTheBaseline) {
  Stage stage;
  hold(stage.handle(1), 0x1000, 'M', 1, 11);
  qk_mem_handle& empty = stage.handle(2);
  qk_mem_baseline("");
  hold(empty, 0x1000, 'M', 1, 22);
  EXPECT_EQ(sections("", QK_MEM_DUMP_HANDLES),
            "Data handles\n"
            "       1                           1                11       1 made.c:100\n"
            "   +   2                           1                22       4 made.c:200\n");
}

/** The row of handle 1 in a comparison. */
std::string compared(const std::string& text) {
  const std::size_t begin = text.find("  |   1 ");
  return text.substr(begin, text.find('\n', begin) + 1 - begin);
}

TEST(Comparison, ShowsTwoDecimalsOnlyBelowTenPercent) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1, 'D', "AB");
  hold(handle, 0x1000, 'M', 1, 1000);
  EXPECT_EQ(compared(report("", QK_MEM_DUMP_COMPARISON)),
            "  |   1 AB    made.c:100      |    0         0|    1      1000|   n/a      n/a|\n");
  qk_mem_baseline("");
  EXPECT_EQ(compared(report("", QK_MEM_DUMP_COMPARISON)),
            "  |   1 AB    made.c:100      |    1      1000|    1      1000| 0.00%        0|\n");
  hold(handle, 0x1100, 'M', 1, 50);
  EXPECT_EQ(compared(report("", QK_MEM_DUMP_COMPARISON)),
            "  |   1 AB    made.c:100      |    1      1000|    2      1050| 5.00%       50|\n");
  hold(handle, 0x1200, 'M', 1, 150);
  EXPECT_EQ(compared(report("", QK_MEM_DUMP_COMPARISON)),
            "  |   1 AB    made.c:100      |    1      1000|    3      1200|   20%      200|\n");
  qk_mem_baseline("HANDLE=1");
  EXPECT_EQ(compared(report("", QK_MEM_DUMP_COMPARISON)),
            "  |   1 AB    made.c:100      |    3      1200|    3      1200| 0.00%        0|\n");
}

TEST(Comparison, ShowsADecreaseAsAHugeAmountCutShort) {
  Ledger ledger("TRACE");
  void* memory = allocate(ledger.pool, 500, 1);
  allocate(ledger.pool, 500, 2);
  qk_mem_baseline("");
  qk_mem_ifree(ledger.pool, memory, "app.c", 3);
  const std::string text = report("HANDLE=3", QK_MEM_DUMP_COMPARISON);
  EXPECT_NE(text.find("  |   3 AB    pool.c:7        |    2      1000|    1       500|"
                      "-50.00%18446744|\n"),
            std::string::npos)
      << text;
}

}  // namespace
