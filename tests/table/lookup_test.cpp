#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <future>

#include "accounting/handle_lookup.h"
#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::Scene;

/** The switches of malloc. */
qk_mem_debug* const kCaller = &Qk_mem_debug[4];

int look_up(int hid, qk_mem_handle** handle) {
  return qk_mem_get_handle(hid, handle, "qk_mem_imalloc", "src/app.c", 12, kCaller);
}

bool is_found(int hid) {
  qk_mem_handle* handle = nullptr;
  return look_up(hid, &handle) == 0 && handle == Qk_mem_handles[hid - 1] && handle->id == hid;
}

TEST(LookUp, FindsEveryLiveHandle) {
  Scene scene("");
  Pool pool;
  for (const int hid : {1, 2, int{pool}}) EXPECT_TRUE(is_found(hid)) << hid;
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(LookUp, RefusesEveryOtherNumber) {
  Scene scene("DEBUG");
  Pool deleted;
  Pool live;
  qk_mem_idel_handle(deleted, "src/app.c", 11);
  for (const int hid : {0, -1, INT_MIN, int{deleted}, 5, 512, 513, INT_MAX}) {
    Qk_mem_error = 0;
    qk_mem_handle* handle = nullptr;
    EXPECT_EQ(look_up(hid, &handle), 5566) << hid;
    EXPECT_EQ(qk_mem_error(), 5566) << hid;
    EXPECT_EQ(handle, nullptr) << hid;
  }
}

TEST(LookUp, LogsARefusalInTheCallersName) {
  Scene scene("DEBUG");
  qk_mem_init();
  scene.skip_log();
  qk_mem_handle* handle = nullptr;
  look_up(-1, &handle);
  look_up(513, &handle);
  EXPECT_EQ(scene.log(),
            "   qk_mem_imalloc: ERROR: invalid hid -1 at app.c:12\n"
            "   qk_mem_imalloc: ERROR: invalid hid 513 at app.c:12\n");
}

TEST(LookUp, LogsARefusalOnlyUnderDebugOfTheCaller) {
  Scene scene("SUMMARY");
  qk_mem_init();
  for (const char* debug :
       {"EXCEPTIONS", "SUMMARY TRACE", "DEBUG=qk_ifree", "DEBUG=not,qk_imalloc"}) {
    qk::Status status;
    ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
    scene.skip_log();
    qk_mem_handle* handle = nullptr;
    EXPECT_EQ(look_up(0, &handle), 5566);
    EXPECT_EQ(scene.log(), "") << debug;
  }
}

TEST(LookUp, ShowsAMissingFileAsNull) {
  Scene scene("DEBUG");
  qk_mem_init();
  scene.skip_log();
  qk_mem_handle* handle = nullptr;
  qk_mem_get_handle(0, &handle, "qk_mem_imalloc", nullptr, 70000, kCaller);
  EXPECT_EQ(scene.log(), "   qk_mem_imalloc: ERROR: invalid hid 0 at (null):70000\n");
}

TEST(LookUp, LeavesTheErrorOfAnEarlierFailure) {
  Scene scene("");
  qk_mem_handle* handle = nullptr;
  qk_mem_init();
  look_up(0, &handle);
  EXPECT_EQ(look_up(1, &handle), 0);
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST(LookUp, WorksBeforeAndAfterAGrowthOfTheHandleArray) {
  Scene scene("");
  for (int hid = 3; hid <= 520; ++hid) {
    ASSERT_EQ(int{Pool()}, hid);
    ASSERT_TRUE(is_found(1) && is_found(hid)) << hid;
    qk_mem_handle* handle = nullptr;
    ASSERT_EQ(look_up(hid + 1, &handle), 5566) << hid;
  }
}

TEST(LookUp, WaitsForTheLockOnlyWithFewerThan10FreeSlots) {
  Scene scene("");
  qk_mem_init();
  const auto look_up_elsewhere = [] {
    return std::async(std::launch::async, [] { return is_found(1); });
  };
  while (Qk_mem_num_handles < 502) Pool();
  Qk_mem_mtx.lock();
  auto passing = look_up_elsewhere();
  EXPECT_EQ(passing.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  Pool();
  auto waiting = look_up_elsewhere();
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  Qk_mem_mtx.unlock();
  EXPECT_TRUE(passing.get());
  EXPECT_TRUE(waiting.get());
}

TEST(LookUp, FindsNothingBeforeStartUp) {
  Scene scene("");
  qk_mem_handle* handle = nullptr;
  EXPECT_EQ(look_up(1, &handle), 5566);
  EXPECT_EQ(Qk_mem_initialized, 0);
}

TEST(LookUp, RefusesNumbersBeyondAnArrayThatCouldNotGrow) {
  Scene scene("");
  qk_mem_init();
  while (Qk_mem_num_handles < 512) Pool();
  kit::fail_request(1);
  EXPECT_EQ(int{Pool()}, 0);
  EXPECT_EQ(Qk_mem_avail_handles, 1024);
  for (const int hid : {513, 514, 1024}) {
    qk_mem_handle* handle = nullptr;
    EXPECT_EQ(look_up(hid, &handle), 5566) << hid;
  }
  EXPECT_TRUE(is_found(512));
}

}  // namespace
