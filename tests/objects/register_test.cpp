#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Environment;
using kit::handle_of;
using kit::Ledger;
using kit::LoggingTracker;
using kit::overhead_of;
using kit::Pool;
using kit::Scene;

/** Registers something at app.c:12. */
void register_ptr(int hid, int type, void* ptr, std::size_t size) {
  qk_mem_iregister(hid, type, ptr, nullptr, size, "src/app.c", 12);
}

void register_ptr(int hid, int type, qk::MemTracker& tracker, std::size_t size) {
  register_ptr(hid, type, &tracker, size);
}

/** Overhead of a ledger's handle: its eight arrays, its own record, and trackers. */
std::string own_and_trackers(std::size_t number) {
  const std::size_t bytes = std::size_t{8} * 16 * 48 + sizeof(qk_mem_handle) + 16 * number;
  return std::to_string(9 + number) + " for " + std::to_string(bytes);
}

/** Trackers to register. */
class Register : public ::testing::Test {
 protected:
  std::string destroyed_;
  LoggingTracker tracker_{"tracker", at(0x5000), destroyed_};
  LoggingTracker of_nothing_{"tracker", nullptr, destroyed_};
  LoggingTracker of_void_{"tracker", at(0x5000), destroyed_, typeid(void)};
  LoggingTracker of_void_nothing_{"tracker", nullptr, destroyed_, typeid(void)};
};

TEST_F(Register, RecordsExternalMemory) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  EXPECT_EQ(ledger.log(), "   qk_mem_iregister:      3 [p1] X 100 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 X [p1] 1 100 app.c 12 100\n");
  EXPECT_EQ(ledger.record(at(0x5000)), "X 1/100 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 1");
  EXPECT_EQ(overhead_of(ledger.pool), own_and_trackers(0));
}

TEST_F(Register, RecordsAnObjectAndItsTracker) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iregister:      3 [p1] W 40 app.c:12\n"
            "   qk_mem_tracker:        3 [p2] T 16 app.c:12\n");
  EXPECT_EQ(ledger.trace(),
            "3 W [p1] 1 40 app.c 12 40\n"
            "3 T [p2] 1 16 app.c 12 16\n");
  EXPECT_EQ(ledger.record(at(0x5000)), "W 1/40 app.c:12 event 1");
  EXPECT_EQ(ledger.record(&tracker_), "T 1/16 app.c:12 event 2");
  EXPECT_EQ(ledger.sums(), "handle 1 for 40, tag 1 for 40, events 2");
  EXPECT_EQ(overhead_of(ledger.pool), own_and_trackers(1));
}

TEST_F(Register, RecordsAnArrayAsOneElementOfAllItsBytes) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker_, 40);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iregister:      3 [p1] J 1/40 app.c:12\n"
            "   qk_mem_tracker:        3 [p2] T 16 app.c:12\n");
  EXPECT_EQ(ledger.trace(),
            "3 J [p1] 1 40 app.c 12 40\n"
            "3 T [p2] 1 16 app.c 12 16\n");
  EXPECT_EQ(ledger.record(at(0x5000)), "J 1/40 app.c:12 event 1");
  EXPECT_EQ(ledger.record(&tracker_), "T 1/16 app.c:12 event 2");
  EXPECT_EQ(ledger.sums(), "handle 1 for 40, tag 1 for 40, events 2");
}

TEST_F(Register, KeepsTheTrackerInTheRecordOfItsObjectOnly) {
  Ledger ledger("");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker_, 40);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x6000), 40);
  EXPECT_EQ(qk_mem_get_ptr(&ledger.pool.record(), at(0x5000))->tracker, &tracker_);
  EXPECT_EQ(qk_mem_get_ptr(&ledger.pool.record(), &tracker_)->tracker, nullptr);
  EXPECT_EQ(qk_mem_get_ptr(&ledger.pool.record(), at(0x6000))->tracker, nullptr);
  EXPECT_EQ(tracker_.address, at(0x5000));
}

TEST_F(Register, MarksItsHandle) {
  Ledger ledger("");
  EXPECT_EQ(ledger.pool.record().registered, 0);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  EXPECT_EQ(ledger.pool.record().registered, 1);
}

TEST_F(Register, LogsTheHeapChangeUnderHeapsize) {
  Ledger ledger(Environment{"DEBUG", "HEAPSIZE", ""});
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker_, 40);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iregister:      3 [p1] J 1/40 app.c:12 (heap change)\n"
            "   qk_mem_tracker:        3 [p2] T 16 app.c:12 (heap change)\n");
}

TEST_F(Register, ShowsTheFullLineOnlyInTheTrackersRow) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  qk_mem_iregister(ledger.pool, QK_MEM_OBJECT, &tracker_, nullptr, 40, "src/app.c", 80000);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iregister:      3 [p1] W 40 app.c:14464\n"
            "   qk_mem_tracker:        3 [p2] T 16 app.c:14464\n");
  EXPECT_EQ(ledger.trace(),
            "3 W [p1] 1 40 app.c 14464 40\n"
            "3 T [p2] 1 16 app.c 80000 16\n");
}

TEST_F(Register, IgnoresItsFourthArgument) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  qk_mem_iregister(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), at(0x7000), 100, "src/app.c", 12);
  EXPECT_EQ(ledger.log(), "   qk_mem_iregister:      3 [p1] X 100 app.c:12\n");
  EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 1");
}

TEST_F(Register, IsFollowedByTheReportUnderCtrlblks) {
  Ledger ledger(Environment{"CTRLBLKS=qk_iregister", "", "OPTIONS=POINTERS"});
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  EXPECT_EQ(kit::sections_of(ledger.log(), QK_MEM_DUMP_POINTERS),
            "Data handle pointers\n"
            "   +   3 AB p1               X     1      100      100     101 app.c:12\n");
}

struct Misuse {
  const char* what;
  int type;
  void* ptr;
  std::size_t size;
  const char* log;
};

TEST_F(Register, WarnsOfMisuse) {
  constexpr char kZero[] = "   qk_mem_iregister: WARNING: register of 0 at app.c:12\n";
  constexpr char kNull[] = "   qk_mem_iregister: WARNING: register of NULL pointer at app.c:12\n";
  constexpr char kVoidObject[] =
      "   qk_mem_iregister: WARNING: register of void object at app.c:12\n";
  constexpr char kVoidArray[] =
      "   qk_mem_iregister: WARNING: register of void array at app.c:12\n";
  const std::string all =
      "   qk_mem_iregister: WARNING: register of 0 at app.c:12\n"
      "   qk_mem_iregister: WARNING: register of NULL pointer at app.c:12\n"
      "   qk_mem_iregister: WARNING: register of void object at app.c:12\n";
  const Misuse rows[] = {
      {"memory of no bytes is fine", QK_MEM_EXTERNAL, at(0x5000), 0, ""},
      {"null memory", QK_MEM_EXTERNAL, nullptr, 9, kNull},
      {"object of no bytes", QK_MEM_OBJECT, &tracker_, 0, kZero},
      {"array of no bytes", QK_MEM_ARRAY, &tracker_, 0, kZero},
      {"null object", QK_MEM_OBJECT, &of_nothing_, 9, kNull},
      {"null array", QK_MEM_ARRAY, &of_nothing_, 9, kNull},
      {"no tracker", QK_MEM_OBJECT, nullptr, 9, kNull},
      {"void object", QK_MEM_OBJECT, &of_void_, 9, kVoidObject},
      {"void array", QK_MEM_ARRAY, &of_void_, 9, kVoidArray},
      {"all of them", QK_MEM_OBJECT, &of_void_nothing_, 0, all.c_str()},
  };
  Ledger ledger("EXCEPTIONS");
  for (const Misuse& row : rows) {
    const Pool pool;
    ledger.skip_all();
    register_ptr(pool, row.type, row.ptr, row.size);
    EXPECT_EQ(ledger.log(), row.log) << row.what;
  }
}

TEST_F(Register, RecordsDespiteAWarning) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_OBJECT, of_void_, 0);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_iregister: WARNING: register of 0 at app.c:12\n"
            "   qk_mem_iregister: WARNING: register of void object at app.c:12\n"
            "   qk_mem_iregister:      3 [p1] W 0 app.c:12\n"
            "   qk_mem_tracker:        3 [p2] T 16 app.c:12\n");
  EXPECT_EQ(ledger.trace(),
            "3 W [p1] 1 0 app.c 12 0\n"
            "3 T [p2] 1 16 app.c 12 16\n");
  EXPECT_EQ(ledger.sums(), "handle 1 for 0, tag 1 for 0, events 2");
}

TEST_F(Register, RecordsNothingForNull) {
  Ledger ledger("DEBUG");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, nullptr, 9);
  register_ptr(ledger.pool, QK_MEM_OBJECT, of_nothing_, 9);
  register_ptr(ledger.pool, QK_MEM_ARRAY, nullptr, 9);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
  EXPECT_EQ(overhead_of(ledger.pool), own_and_trackers(0));
  EXPECT_EQ(ledger.pool.record().registered, 0);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST_F(Register, WarnsOfARecordedAddressAndRecordsItTwice) {
  Ledger ledger("EXCEPTIONS");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  qk_mem_iregister(ledger.pool, QK_MEM_OBJECT, &tracker_, nullptr, 40, "src/other.c", 80000);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_iregister: WARNING:   3 [p1] ptr already exists at other.c:80000 (allocated at app.c:12)\n");
  EXPECT_EQ(ledger.sums(), "handle 2 for 140, tag 2 for 140, events 3");
}

TEST_F(Register, WarnsOfAllocatedMemoryAndRecordsItTwice) {
  Ledger ledger("EXCEPTIONS");
  void* memory = qk_mem_imalloc(ledger.pool, 10, 16, "src/other.c", 80000);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, memory, 10);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_iregister: WARNING:   3 [p1] ptr already exists at app.c:12 (allocated at other.c:14464)\n");
  EXPECT_EQ(ledger.sums(), "handle 2 for 20, tag 2 for 20, events 2");
}

TEST_F(Register, WarnsOfVoidEvenIfTheAddressIsRecorded) {
  Ledger ledger("EXCEPTIONS");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  register_ptr(ledger.pool, QK_MEM_ARRAY, of_void_, 0);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_iregister: WARNING: register of 0 at app.c:12\n"
      "   qk_mem_iregister: WARNING:   3 [p1] ptr already exists at app.c:12 (allocated at app.c:12)\n"
      "   qk_mem_iregister: WARNING: register of void array at app.c:12\n");
}

TEST_F(Register, AcceptsAnAddressRecordedOnAnotherHandle) {
  Ledger ledger("EXCEPTIONS");
  const Pool other;
  register_ptr(other, QK_MEM_EXTERNAL, at(0x5000), 100);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 100);
  EXPECT_EQ(ledger.log(), "");
}

TEST_F(Register, SetsACodeForAnInvalidHandle) {
  Ledger ledger("DEBUG");
  register_ptr(99, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(ledger.log(), "   qk_mem_iregister: ERROR: invalid hid 99 at app.c:12\n");
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST_F(Register, DoesNothingOnTheUntrackedDataHandle) {
  Scene scene("");
  qk_mem_init();
  register_ptr(QK_MEM_DATA_HANDLE, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(kit::data_of(2), "0 for 0");
  EXPECT_EQ(handle_of(2).registered, 0);
  EXPECT_EQ(qk_mem_is_recorded(2, at(0x5000), "src/app.c", 13), 0);
}

TEST_F(Register, RecordsOnTheDataHandleOnceAnythingIsConfigured) {
  Scene scene("TRACE");
  register_ptr(QK_MEM_DATA_HANDLE, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(kit::data_of(2), "1 for 40");
  EXPECT_EQ(handle_of(2).registered, 1);
}

TEST_F(Register, WarnsOnADataHandleConfiguredAfterStartUp) {
  Ledger ledger("");
  ledger.configure("EXCEPTIONS");
  register_ptr(QK_MEM_DATA_HANDLE, QK_MEM_OBJECT, tracker_, 0);
  EXPECT_EQ(ledger.log(), "   qk_mem_iregister: WARNING: register of 0 at app.c:12\n");
  EXPECT_EQ(kit::data_of(2), "0 for 0");
  EXPECT_EQ(handle_of(2).registered, 0);
}

TEST_F(Register, LeavesTheObjectUnrecordedOnFailure) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  kit::fill_arrays(ledger.pool);
  ledger.skip_all();
  kit::fail_request(1);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_new_ptr: ERROR: realloc of 3840 at app.c:12 of a->ptrs failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.record(at(0x5000)), "none");
  EXPECT_EQ(ledger.record(&tracker_), "none");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
  EXPECT_EQ(ledger.pool.record().registered, 1);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(destroyed_, "") << "the tracker stays the caller's";
}

TEST_F(Register, RecordsTheObjectEvenIfItsTrackerFails) {
  Ledger ledger("EXCEPTIONS");
  // The object's address belongs to another array than the tracker's.
  kit::fill_arrays(ledger.pool);
  const auto index = (reinterpret_cast<std::uintptr_t>(&tracker_) >> 4) & 7;
  tracker_.address = at(0x5000 + 16 * ((index + 1) & 7));
  kit::fail_request(2);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_new_ptr: ERROR: realloc of 3840 at app.c:12 of a->ptrs failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.sums(), "handle 1 for 40, tag 1 for 40, events 2") << "one is the array's";
  EXPECT_EQ(ledger.record(&tracker_), "none");
}

TEST_F(Register, ChargesABlockManagedHandleThatRecordsNoPieces) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, "BLOCKMGMT BLOCKINITIAL=0");
  EXPECT_EQ(ledger.pool.record().track, 0);
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x6000), 100);
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(ledger.trace(),
            "3 X [p1] 1 100 app.c 12 100\n"
            "3 W [p2] 1 40 app.c 12 40\n"
            "3 T [p3] 1 16 app.c 12 16\n");
  EXPECT_EQ(ledger.record(at(0x5000)), "W 1/40 app.c:12 event 2");
  EXPECT_EQ(ledger.sums(), "handle 2 for 140, tag 2 for 140, events 3");
}

TEST_F(Register, CountsAsDataEvenOnAnOverheadHandle) {
  Ledger ledger(Environment{}, "OVERHEAD");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker_, 40);
  EXPECT_EQ(ledger.sums(), "handle 1 for 40, tag 1 for 40, events 2");
}

}  // namespace
