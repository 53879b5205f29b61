#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <initializer_list>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "accounting/kept_calls.h"
#include "core/records.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::handle_of;
using kit::Pool;
using kit::Scene;

/** The switches of handle creation. */
qk_mem_debug* const kCaller = &Qk_mem_debug[1];

/** Creates handles until there are `count`. */
void have_handles(int count) {
  qk_mem_init();
  while (Qk_mem_num_handles < count) Pool();
}

const qk_mem_ptr* record_of_array() { return qk_mem_get_ptr(&handle_of(1), Qk_mem_handles); }

/** Moves the accounting from one array to another. */
void move_accounting(qk_mem_handle** from, qk_mem_handle** to) {
  const qk::mem::RegistryLock lock;
  qk_mem_handle_array(from, to, "src/app.c", 70000, kCaller);
}

qk_mem_handle** new_array() { return static_cast<qk_mem_handle**>(std::calloc(8, sizeof(void*))); }

TEST(HandleArray, IsRecordedOnHandle1FromTheStart) {
  Scene scene("");
  qk_mem_init();
  EXPECT_EQ(Qk_mem_avail_handles, 512);
  const qk_mem_ptr* record = record_of_array();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, 'H');
  EXPECT_EQ(record->count, 512U);
  EXPECT_EQ(record->size, 8U);
  EXPECT_STREQ(record->file, "qkmem.cpp");
}

TEST(HandleArray, GrowsWithThe513thHandleAndKeepsTheOthers) {
  Scene scene("");
  have_handles(512);
  EXPECT_EQ(Qk_mem_avail_handles, 512);
  const qk_mem_handle* first = Qk_mem_handles[0];
  const qk_mem_handle* last = Qk_mem_handles[511];
  EXPECT_EQ(int{Pool()}, 513);
  EXPECT_EQ(Qk_mem_avail_handles, 1024);
  EXPECT_EQ(Qk_mem_num_handles, 513);
  EXPECT_EQ(Qk_mem_handles[0], first);
  EXPECT_EQ(Qk_mem_handles[511], last);
  EXPECT_EQ(Qk_mem_handles[513], nullptr);
  EXPECT_EQ(Qk_mem_handles[1023], nullptr);
}

TEST(HandleArray, GrowsAgainWithThe1025thHandle) {
  Scene scene("");
  have_handles(1024);
  EXPECT_EQ(Qk_mem_avail_handles, 1024);
  EXPECT_EQ(int{Pool()}, 1025);
  EXPECT_EQ(Qk_mem_avail_handles, 1536);
  EXPECT_EQ(record_of_array()->count, 1536U);
  EXPECT_EQ(handle_of(1025).id, 1025);
}

TEST(HandleArray, DoesNotGrowWhileAnyNumberIsFree) {
  Scene scene("");
  have_handles(512);
  qk_mem_idel_handle(100, "src/app.c", 5);
  EXPECT_EQ(int{Pool()}, 100);
  EXPECT_EQ(Qk_mem_avail_handles, 512);
}

/** Deletes each of some handles, and expects that new ones get the same numbers, lowest first. */
void expect_numbers_are_reused(std::initializer_list<int> numbers) {
  for (const int hid : numbers) EXPECT_EQ(qk_mem_idel_handle(hid, "src/app.c", 5), 0);
  std::vector<int> sorted = numbers;
  std::sort(sorted.begin(), sorted.end());
  for (const int hid : sorted) EXPECT_EQ(int{Pool()}, hid);
}

TEST(HandleArray, ReusesTheLowestNumberOfMany) {
  Scene scene("");
  have_handles(6000);
  expect_numbers_are_reused({5999, 64, 4097, 65, 3, 4096, 512, 4608});
  EXPECT_EQ(int{Pool()}, 6001);
  expect_numbers_are_reused({6001, 1000});
}

TEST(HandleArray, ReusesTheLowestNumberWithoutMemoryToNoteThem) {
  Scene scene("");
  have_handles(4096);
  kit::fail_request(2);  // the first request is the larger array
  EXPECT_EQ(int{Pool()}, 4097);
  EXPECT_TRUE(kit::has_failed());
  expect_numbers_are_reused({4097, 70, 4096, 3});
  EXPECT_EQ(int{Pool()}, 4098);
  have_handles(4608);
  EXPECT_EQ(int{Pool()}, 4609);
  expect_numbers_are_reused({4609, 4100, 9});
}

TEST(HandleArray, IsRecordedAgainWhenItGrows) {
  Scene scene("");
  have_handles(512);
  qk_mem_handle** old_array = Qk_mem_handles;
  Pool pool;
  EXPECT_EQ(qk_mem_get_ptr(&handle_of(1), old_array), nullptr);
  const qk_mem_ptr* record = record_of_array();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, 'H');
  EXPECT_EQ(record->count, 1024U);
  EXPECT_EQ(record->size, 8U);
  EXPECT_STREQ(record->file, "qkmem.cpp");
}

TEST(HandleArray, LowersOverheadBytesButDataQuantityWhenRemoved) {
  Scene scene("");
  qk_mem_init();
  qk_mem_handle** array = new_array();
  move_accounting(nullptr, array);
  const qk_mem_handle before = handle_of(1);
  move_accounting(array, nullptr);
  EXPECT_EQ(handle_of(1).overhead_amount, before.overhead_amount - 4096);
  EXPECT_EQ(handle_of(1).overhead_qty, before.overhead_qty);
  EXPECT_EQ(handle_of(1).qty, before.qty - 1) << "removal counts bookkeeping as data";
}

TEST(HandleArray, TracesItsGrowthAfterTheNewHandle) {
  Scene scene(Environment{"DEBUG", "HEAPSIZE DB", ""});
  have_handles(512);
  scene.skip_log();
  scene.skip_trace();
  Pool pool;
  EXPECT_EQ(scene.log("qk_mem_inew_handle"),
            "   qk_mem_inew_handle:  513 N D  pool.c:7 (heap change)\n");
  EXPECT_EQ(scene.log("qk_mem_handle_array"),
            "   qk_mem_handle_array:   1 [p1] F qkmem.cpp:#; H 512/8 qkmem.cpp:# (heap change)\n"
            "   qk_mem_handle_array:   1 [p2] H 1024/8 qkmem.cpp:# (heap change)\n");
  const std::string size = std::to_string(sizeof(qk_mem_handle));
  EXPECT_EQ(scene.trace("NFH"),
            "513 N [p0] 0 0 pool.c 7 0\n"
            "1 F [p1] 512 8 qkmem.cpp # -4096\n"
            "1 H [p2] 1024 8 qkmem.cpp # 8192\n"
            "513 H [p3] 1 " +
                size + " pool.c 7 " + size + "\n");
}

TEST(HandleArray, IsNotTracedUnderExceptions) {
  Scene scene("EXCEPTIONS");
  have_handles(513);
  EXPECT_EQ(scene.log("qk_mem_handle_array"), "");
}

TEST(HandleArray, LogsTheCallersFullLineOnlyInReleases) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  qk_mem_init();
  qk_mem_handle** array = new_array();
  scene.skip_log();
  scene.skip_trace();
  move_accounting(nullptr, array);
  EXPECT_EQ(scene.log("qk_mem_handle_array"),
            "   qk_mem_handle_array:   1 [p1] H 512/8 app.c:4464\n");
  EXPECT_EQ(scene.trace("H"), "1 H [p1] 512 8 app.c 70000 4096\n");
  scene.skip_log();
  scene.skip_trace();
  move_accounting(array, nullptr);
  EXPECT_EQ(scene.log(), "   qk_mem_handle_array:   1 [p1] F app.c:70000; H 512/8 app.c:4464\n");
  EXPECT_EQ(scene.trace(), "1 F [p1] 512 8 app.c 70000 -4096\n");
}

TEST(HandleArray, CountsAnEventForEachStep) {
  Scene scene("");
  qk_mem_init();
  qk_mem_handle** array = new_array();
  move_accounting(nullptr, array);
  const std::uint32_t made = Qk_mem_seq;
  EXPECT_EQ(qk_mem_get_ptr(&handle_of(1), array)->seq, made);
  move_accounting(array, nullptr);
  EXPECT_EQ(Qk_mem_seq, made + 1);
}

TEST(HandleArray, StaysUnrecordedIfTheOldOneHasNoRecord) {
  Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
  const std::string sums = kit::overhead_of(1);
  qk_mem_handle** array = new_array();
  move_accounting(new_array(), array);
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_handle_array: WARNING:   1 [p1] Qk_mem_handles ptr not found at app.c:70000\n");
  EXPECT_EQ(scene.trace(), "");
  EXPECT_EQ(qk_mem_get_ptr(&handle_of(1), array), nullptr);
  EXPECT_EQ(kit::overhead_of(1), sums);
  std::free(array);
}

TEST(HandleArray, LogsNoMissingRecordUnderOtherSwitches) {
  Scene scene("SUMMARY TRACE");
  qk_mem_init();
  scene.skip_log();
  move_accounting(new_array(), nullptr);
  EXPECT_EQ(scene.log(), "");
}

TEST(HandleArray, StaysUnrecordedWithoutHandle1) {
  Scene scene("DEBUG");
  qk_mem_init();
  qk_mem_idel_handle(1, "src/app.c", 5);
  scene.skip_log();
  qk_mem_handle** array = new_array();
  move_accounting(nullptr, array);
  EXPECT_EQ(scene.log(), "   qk_mem_inew_handle: ERROR: invalid hid 1 at app.c:70000\n");
  EXPECT_EQ(qk_mem_error(), 5566);
  std::free(array);
}

TEST(HandleArray, StaysUnrecordedWhenHandle1CannotRecord) {
  Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  qk_mem_init();
  qk_mem_handle** array = new_array();
  const std::uintptr_t index = reinterpret_cast<std::uintptr_t>(array) >> 4 & 7;
  handle_of(1).ptrs[index].used = handle_of(1).ptrs[index].capacity;
  const std::string sums = kit::overhead_of(1);
  scene.skip_log();
  scene.skip_trace();
  kit::fail_request(1);
  move_accounting(nullptr, array);
  EXPECT_EQ(scene.log().rfind("   qk_mem_new_ptr: ERROR: realloc of ", 0), 0U);
  EXPECT_EQ(scene.trace(), "");
  EXPECT_EQ(kit::overhead_of(1), sums);
  std::free(array);
}

/** A second thread, which does nothing. */
class IdleThread {
 public:
  IdleThread() : thread_([this] { end_.get_future().wait(); }) {}
  IdleThread(const IdleThread&) = delete;
  IdleThread& operator=(const IdleThread&) = delete;
  ~IdleThread() {
    end_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> end_;
  std::thread thread_;
};

TEST(HandleArrayBesideAThread, IsReplacedFewTimes) {
  Scene scene("");
  const IdleThread other;
  std::set<qk_mem_handle**> arrays;
  qk_mem_init();
  for (int count = 2; count < 20000; ++count) {
    ASSERT_EQ(int{Pool()}, count + 1);
    arrays.insert(Qk_mem_handles);
  }
  EXPECT_EQ(Qk_mem_avail_handles, 20480);
  EXPECT_LE(arrays.size(), 6U) << "room for 1024, 3072, 7168, 15360 and 31744 handles";
  for (const int hid : {1, 513, 1024, 1025, 3072, 3073, 20000}) EXPECT_EQ(handle_of(hid).id, hid);
}

TEST(HandleArrayBesideAThread, IsRecordedAgainWhenItGrowsInPlace) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  const IdleThread other;
  have_handles(512);
  scene.skip_log();
  scene.skip_trace();
  qk_mem_handle** array = Qk_mem_handles;
  Pool pool;
  EXPECT_EQ(Qk_mem_handles, array);
  EXPECT_EQ(Qk_mem_avail_handles, 1024);
  EXPECT_EQ(scene.log("qk_mem_handle_array"),
            "   qk_mem_handle_array:   1 [p1] F qkmem.cpp:#; H 512/8 qkmem.cpp:#\n"
            "   qk_mem_handle_array:   1 [p1] H 1024/8 qkmem.cpp:#\n");
  EXPECT_EQ(record_of_array()->count, 1024U);
  EXPECT_EQ(record_of_array()->size, 8U);
}

TEST(HandleArrayBesideAThread, KeepsAnArrayInPlaceForAHandleThatIsRefused) {
  Scene scene("");
  const IdleThread other;
  have_handles(512);
  EXPECT_EQ(qk_mem_inew_handle("BAD", "", "src/app.c", 5), 0);
  EXPECT_EQ(handle_of(512).id, 512);
  EXPECT_EQ(int{Pool()}, 513);
  EXPECT_EQ(handle_of(1).id, 1);
}

TEST(HandleArrayBesideAThread, LeavesNothingToFindBehindItsSlots) {
  Scene scene("");
  const IdleThread other;
  have_handles(512);
  for (const int hid : {513, 1024}) {
    EXPECT_EQ(qk_mem_isize(hid, "src/app.c", 5), static_cast<std::size_t>(-1));
  }
}

TEST(FailedHandleArrayGrowth, RefusesAHandleButRaisesTheSlotCount) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  have_handles(512);
  scene.skip_log();
  scene.skip_trace();
  kit::fail_request(1);
  EXPECT_EQ(int{Pool()}, 0);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_inew_handle: ERROR: calloc of handle array failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(scene.trace(), "");
  EXPECT_EQ(Qk_mem_num_handles, 512);
  EXPECT_EQ(Qk_mem_avail_handles, 1024) << "raised before anything can fail";
  EXPECT_FALSE(Qk_mem_mtx.held());
}

TEST(FailedHandleArrayGrowth, RefusesEachLaterHandle) {
  Scene scene("EXCEPTIONS");
  have_handles(512);
  kit::fail_request(1);
  EXPECT_EQ(int{Pool()}, 0);
  scene.skip_log();
  for (int i = 0; i < 2; ++i) {
    Qk_mem_error = 0;
    EXPECT_EQ(int{Pool()}, 0);
    EXPECT_EQ(qk_mem_error(), 5566);
    EXPECT_EQ(Qk_mem_num_handles, 512);
    EXPECT_FALSE(Qk_mem_mtx.held());
  }
  EXPECT_EQ(scene.log(),
            "   qk_mem_inew_handle: ERROR: handle array not maintained properly\n"
            "   qk_mem_inew_handle: ERROR: handle array not maintained properly\n");
}

TEST(FailedHandleArrayGrowth, IsSilentUnderOtherRoutinesSwitches) {
  Scene scene("EXCEPTIONS=qk_ifree");
  have_handles(512);
  scene.skip_log();
  kit::fail_request(1);
  Pool first;
  Pool second;
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST(FailedHandleArrayGrowth, KeepsServingTheExistingNumbers) {
  Scene scene("");
  have_handles(512);
  kit::fail_request(1);
  EXPECT_EQ(int{Pool()}, 0);
  EXPECT_EQ(qk_mem_isize(512, "src/app.c", 5), 0U);
  EXPECT_EQ(qk_mem_isize(513, "src/app.c", 5), static_cast<std::size_t>(-1));
  EXPECT_EQ(qk_mem_idel_handle(300, "src/app.c", 5), 0);
  EXPECT_EQ(int{Pool()}, 300);
  EXPECT_EQ(int{Pool()}, 0);
}

TEST(FailedHandleArrayGrowth, LeavesNoHandlesAtStartUp) {
  Scene scene("");
  kit::fail_request(2);  // the first request is the byte that makes the heap measurable
  qk_mem_init();
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(Qk_mem_avail_handles, 512);
  EXPECT_EQ(Qk_mem_num_handles, 0);
  for (const int hid : {1, 2}) {
    EXPECT_EQ(qk_mem_isize(hid, "src/app.c", 5), static_cast<std::size_t>(-1));
  }
  EXPECT_EQ(int{Pool()}, 0);
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST(HandleArray, GrowsEvenForAHandleThatIsThenRefused) {
  Scene scene("");
  have_handles(512);
  const void* old_array = Qk_mem_handles;
  EXPECT_EQ(qk_mem_inew_handle("BAD", "", "src/app.c", 5), 0);
  EXPECT_EQ(qk_mem_is_recorded(QK_MEM_OVERHEAD_HANDLE, old_array, "src/app.c", 6), 1);
  EXPECT_EQ(qk_mem_is_recorded(QK_MEM_OVERHEAD_HANDLE, Qk_mem_handles, "src/app.c", 6), 0);
  EXPECT_EQ(Qk_mem_avail_handles, 1024);
  EXPECT_EQ(Qk_mem_num_handles, 512);
  EXPECT_EQ(int{Pool()}, 513);
  EXPECT_EQ(handle_of(512).id, 512);
}

}  // namespace
