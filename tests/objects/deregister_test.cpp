#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <typeinfo>

#include "core/registry.h"
#include "tests/kit/ledger.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Environment;
using kit::Ledger;
using kit::LoggingTracker;
using kit::Scene;
using std::string_literals::operator""s;

/** Registers something at app.c:12. */
void register_ptr(int hid, int type, void* ptr, std::size_t size) {
  qk_mem_iregister(hid, type, ptr, nullptr, size, "src/app.c", 12);
}

/** Deregisters something at other.c:80000. */
void deregister_ptr(int hid, int type, void* ptr) {
  qk_mem_ideregister(hid, type, ptr, "lib/other.c", 80000);
}

class Deregister : public ::testing::Test {
 protected:
  /** A tracker of 0x5000, owned by the handle that it is registered on. */
  LoggingTracker* tracker(const std::type_info& type = typeid(int)) {
    return new LoggingTracker("tracker", at(0x5000), destroyed_, type);
  }

  std::string destroyed_;
  LoggingTracker same_{"named", at(0x5000), destroyed_};
  LoggingTracker different_{"named", at(0x5000), destroyed_, typeid(double)};
  LoggingTracker of_nothing_{"named", nullptr, destroyed_};
};

TEST_F(Deregister, RemovesExternalMemoryUnderTheByteZero) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ideregister:          3 [p1] \0 other.c:80000; X 100 app.c:12\n"s);
  EXPECT_EQ(ledger.trace(), "3 \0 [p1] 1 100 other.c 80000 -100\n"s);
  EXPECT_EQ(ledger.record(at(0x5000)), "none");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 1");
}

TEST_F(Deregister, RemovesAnObjectUnderTheByteOneAndItsTracker) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker(), 40);
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &same_);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ideregister:          3 [p1] \x01 other.c:80000; W 40 app.c:12\n"
            "   qk_mem_tracker:   3 [p2] E other.c:80000; T 16 app.c:12\n");
  EXPECT_EQ(ledger.trace(),
            "3 \x01 [p1] 1 40 other.c 80000 -40\n"
            "3 E [p2] 1 16 other.c 80000 -16\n");
  EXPECT_EQ(ledger.record(at(0x5000)), "none");
  EXPECT_EQ(destroyed_, "tracker is destroyed\n") << "its address is null by then";
  EXPECT_EQ(same_.address, at(0x5000));
}

TEST_F(Deregister, RemovesAnArrayUnderTheByteTwoAndItsTrackerUnderE) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker(), 40);
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_ARRAY, &same_);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ideregister:          3 [p1] \x02 other.c:80000; J 1/40 app.c:12\n"
            "   qk_mem_tracker:   3 [p2] E other.c:80000; T 16 app.c:12\n");
  EXPECT_EQ(ledger.trace(),
            "3 \x02 [p1] 1 40 other.c 80000 -40\n"
            "3 E [p2] 1 16 other.c 80000 -16\n");
  EXPECT_EQ(destroyed_, "tracker is destroyed\n");
}

TEST_F(Deregister, WritesAZeroByteAndTheRestOfTheLine) {
  Ledger ledger(Environment{"DEBUG", "HEAPSIZE DB", ""});
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  std::fflush(nullptr);
  const std::string log = kit::contents("qkmem.log");
  EXPECT_NE(log.find("[0000000000005000] \0 other.c:80000; X 100 app.c:12 ("s), std::string::npos);
  EXPECT_EQ(log.back(), '\n');
  const std::string trace = kit::contents("qkmem.tdf");
  EXPECT_NE(trace.find("\t3\t\0\t0000000000005000\t1\t100\t0\tother.c\t80000\t"s),
            std::string::npos)
      << "the handle holds 0 bytes by then";
}

TEST_F(Deregister, CanNameAnObjectByItsOwnTracker) {
  Ledger ledger("EXCEPTIONS");
  LoggingTracker* const own = tracker();
  register_ptr(ledger.pool, QK_MEM_OBJECT, own, 40);
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, own);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(destroyed_, "tracker is destroyed\n");
}

TEST_F(Deregister, CountsTheTrackersRemovalAsData) {
  Ledger ledger("");
  const std::string overhead = kit::overhead_of(ledger.pool);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker(), 40);
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &same_);
  EXPECT_EQ(ledger.sums(), "handle 4294967295 for 0, tag 4294967295 for 0, events 4");
  EXPECT_EQ(overhead, "9 for " + std::to_string(8 * 16 * 48 + sizeof(qk_mem_handle)));
  EXPECT_EQ(kit::overhead_of(ledger.pool),
            "10 for " + std::to_string(8 * 16 * 48 + sizeof(qk_mem_handle)))
      << "the bytes are subtracted, the quantity isn't";
}

TEST_F(Deregister, LeavesTheObjectToItsOwner) {
  Ledger ledger("");
  auto* const number = new int(42);
  auto* const own = new LoggingTracker("tracker", number, destroyed_);
  register_ptr(ledger.pool, QK_MEM_OBJECT, own, sizeof(int));
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, own);
  EXPECT_EQ(*number, 42);
  delete number;
}

TEST_F(Deregister, IsFollowedByTheReportUnderCtrlblks) {
  Ledger ledger(Environment{"CTRLBLKS=qk_ideregister", "", "OPTIONS=POINTERS"});
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(kit::sections_of(ledger.log(), QK_MEM_DUMP_POINTERS), "");
}

TEST_F(Deregister, RemovesTheLatestOfTwoRecordsFirst) {
  Ledger ledger("");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 30);
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 3");
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 4");
}

TEST_F(Deregister, RemovesAllocatedMemoryWithoutFreeingIt) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  void* const memory = qk_mem_icalloc(ledger.pool, 2, 10, 16, "src/app.c", 12);
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, memory);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ideregister:          3 [p1] \0 other.c:80000; C 10 app.c:12\n"s)
      << "kinds other than J show the size alone";
  EXPECT_EQ(ledger.trace(), "3 \0 [p1] 2 10 other.c 80000 -20\n"s);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 1");
  std::free(memory);
}

TEST_F(Deregister, SetsACodeForAnInvalidHandle) {
  Ledger ledger("DEBUG");
  deregister_ptr(99, QK_MEM_OBJECT, &same_);
  EXPECT_EQ(ledger.log(), "   qk_mem_ideregister: ERROR: invalid hid 99 at other.c:80000\n");
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST_F(Deregister, DoesNothingOnTheUntrackedDataHandle) {
  Scene scene("");
  qk_mem_init();
  deregister_ptr(QK_MEM_DATA_HANDLE, QK_MEM_OBJECT, &of_nothing_);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(kit::contents("qkmem.log"), "");
}

TEST_F(Deregister, WarnsOnADataHandleConfiguredAfterStartUp) {
  Ledger ledger("");
  ledger.configure("EXCEPTIONS");
  deregister_ptr(QK_MEM_DATA_HANDLE, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ideregister: WARNING:   2 [p1] ptr not found at other.c:80000\n");
}

TEST_F(Deregister, LowersTheChargeOfABlockManagedHandle) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, "BLOCKMGMT BLOCKSIZE=64");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  EXPECT_EQ(kit::tag_of("AB"), "2 for 196") << "96 of them are the block's";
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.trace(), "3 \0 [p1] 1 100 other.c 80000 -100\n"s);
  EXPECT_EQ(ledger.sums(), "handle 1 for 96, tag 1 for 96, events 1");
}

}  // namespace
