#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "core/registry.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::handle_of;
using kit::Pool;
using kit::Scene;
using kit::tag_of;

int destroy(int hid) { return qk_mem_idel_handle(hid, "lib/other.c", 80000); }

void* allocate(int hid, std::size_t size) { return qk_mem_imalloc(hid, size, 16, "src/app.c", 5); }

TEST(DeleteHandle, FreesTheNumber) {
  Scene scene("");
  Pool pool;
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_EQ(Qk_mem_handles[pool - 1], nullptr);
  EXPECT_EQ(qk_mem_isize(pool, "src/app.c", 5), static_cast<std::size_t>(-1));
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(int{Pool()}, int{pool});
}

TEST(DeleteHandle, ReleasesWhatItHolds) {
  Scene scene("");
  Pool pool("MULTITHREADED", "AB");
  for (std::size_t size = 1; size <= 1000; ++size) allocate(pool, size);
  qk_mem_icalloc(pool, 10, 30, 16, "src/app.c", 5);
  qk_mem_istrdup(pool, "text", "src/app.c", 5);
  qk_mem_irealloc(pool, allocate(pool, 10), 500, 16, "src/app.c", 5);
  EXPECT_EQ(destroy(pool), 0);  // the address sanitizer reports leaks
  EXPECT_EQ(qk_mem_tag_size("AB"), 0);
}

TEST(DeleteHandle, RefusesTheDataHandle) {
  Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
  EXPECT_EQ(destroy(2), 5566);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(scene.log(),
            "   qk_mem_idel_handle: ERROR: del_handle of QK_MEM_DATA_HANDLE at other.c:80000\n");
  EXPECT_EQ(scene.trace(), "");
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_NE(allocate(2, 8), nullptr);
  EXPECT_EQ(kit::data_of(2), "1 for 8");
}

TEST(DeleteHandle, ReportsTheDataHandleUnderItsOwnSwitches) {
  Scene scene("DEBUG=qk_mem_idel_handle");
  qk_mem_init();
  scene.skip_log();
  destroy(2);
  EXPECT_EQ(scene.log(),
            "   qk_mem_idel_handle: ERROR: del_handle of QK_MEM_DATA_HANDLE at other.c:80000\n");
  for (const char* debug : {"SUMMARY TRACE", "EXCEPTIONS=not,qk_mem_idel_handle"}) {
    qk::Status status;
    ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
    scene.skip_log();
    EXPECT_EQ(destroy(2), 5566);
    EXPECT_EQ(scene.log(), "") << debug;
  }
}

TEST(DeleteHandle, RefusesAnInvalidHandle) {
  Scene scene("DEBUG");
  Pool deleted;
  destroy(deleted);
  scene.skip_log();
  for (const int hid : {0, -1, INT_MIN, int{deleted}, 513, INT_MAX}) {
    Qk_mem_error = 0;
    EXPECT_EQ(destroy(hid), 5566) << hid;
    EXPECT_EQ(qk_mem_error(), 5566) << hid;
  }
  EXPECT_EQ(scene.log(),
            "   qk_mem_idel_handle: ERROR: invalid hid 0 at other.c:80000\n"
            "   qk_mem_idel_handle: ERROR: invalid hid -1 at other.c:80000\n"
            "   qk_mem_idel_handle: ERROR: invalid hid -2147483648 at other.c:80000\n"
            "   qk_mem_idel_handle: ERROR: invalid hid 3 at other.c:80000\n"
            "   qk_mem_idel_handle: ERROR: invalid hid 513 at other.c:80000\n"
            "   qk_mem_idel_handle: ERROR: invalid hid 2147483647 at other.c:80000\n");
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

TEST(DeleteHandle, SubtractsItsBytesFromItsTag) {
  Scene scene("");
  Pool one("", "AB");
  Pool two("", "AB");
  allocate(one, 100);
  allocate(one, 20);
  allocate(two, 30);
  EXPECT_EQ(tag_of("AB"), "3 for 150");
  destroy(one);
  EXPECT_EQ(qk_mem_tag_size("AB"), 30);
}

TEST(DeleteHandle, LowersItsTagsQuantityForItsBookkeepingToo) {
  Scene scene("");
  Pool keeper("", "AB");
  for (int i = 0; i < 10; ++i) allocate(keeper, 1);
  Pool plain("", "AB");
  allocate(plain, 100);
  EXPECT_EQ(tag_of("AB"), "11 for 110");
  destroy(plain);
  EXPECT_EQ(tag_of("AB"), "9 for 10") << "its pointer and its record";
  Pool shared("MULTITHREADED", "AB");
  destroy(shared);
  EXPECT_EQ(tag_of("AB"), "7 for 10") << "its record and its mutex";
}

TEST(DeleteHandle, CanLowerItsTagsQuantityBelowZero) {
  Scene scene("");
  destroy(Pool("MULTITHREADED", "AB"));
  EXPECT_EQ(tag_of("AB"), "4294967294 for 0");
}

TEST(DeleteHandle, CountsOneEvent) {
  Scene scene("");
  Pool pool;
  allocate(pool, 8);
  Qk_mem_seq = 41;
  destroy(pool);
  EXPECT_EQ(Qk_mem_seq, 42U);
}

TEST(DeleteHandle, EndsItsLogWithTheCreationLocation) {
  Scene scene(Environment{"DEBUG", "HEAPSIZE DB", ""});
  const int hid = qk_mem_inew_handle("AUTOFREE", "", "src/app.c", 70000);
  scene.skip_trace();
  destroy(hid);
  EXPECT_TRUE(scene.log().ends_with(
      "   qk_mem_idel_handle:    3 D other.c:80000; app.c:70000 (heap change)\n"))
      << scene.log();
  EXPECT_EQ(scene.trace("D"), "3 D [p0] 0 0 other.c 80000 0\n");
}

TEST(DeleteHandle, IsTracedEvenIfNothingIsLogged) {
  Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  Pool pool;
  allocate(pool, 8);
  scene.skip_log();
  scene.skip_trace();
  destroy(pool);
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(scene.trace("D"), "3 D [p0] 0 0 other.c 80000 0\n");
  EXPECT_NE(scene.trace("F"), "");
}

TEST(DeleteHandle, IsFollowedByTheReportOnceUnderCtrlblks) {
  Scene scene("CTRLBLKS=qk_mem_idel_handle");
  kit::set_heap(4096);
  Pool pool;
  allocate(pool, 8);
  allocate(pool, 9);
  scene.skip_log();
  destroy(pool);
  EXPECT_NE(scene.log(), "");
  EXPECT_EQ(scene.log(), kit::normalized(kit::dump("", 0)));
}

TEST(DeleteHandle, TakesItsLocationFromTheMacro) {
  Scene scene("DEBUG");
  Pool pool;
  scene.skip_log();
  EXPECT_EQ(qk_mem_del_handle(pool), 0);
  const std::string line = std::to_string(__LINE__ - 1);
  EXPECT_TRUE(scene.log().ends_with("   qk_mem_idel_handle:    3 D delete_test.cpp:" + line +
                                    "; pool.c:7\n"))
      << scene.log();
}

TEST(DeleteHandle, SkipsAnArrayThatCouldNotGrow) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  qk_mem_init();
  kit::fail_request(2);
  Pool pool;  // whose own record couldn't be recorded
  EXPECT_EQ(kit::overhead_of(pool), "0 for 0");
  scene.skip_log();
  scene.skip_trace();
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(scene.log(), "   qk_mem_idel_handle:    3 D other.c:80000; pool.c:7\n");
  EXPECT_EQ(scene.trace(), "3 D [p0] 0 0 other.c 80000 0\n");
}

TEST(DeleteHandle, ReleasesAMillionPointers) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr int kPointers = 50000;
#else
  constexpr int kPointers = 1000000;
#endif
  Scene scene("");
  Pool keeper("", "AB");
  for (int i = 0; i < 2; ++i) allocate(keeper, 10);
  Pool pool("", "AB");
  for (int i = 0; i < kPointers; ++i) ASSERT_NE(allocate(pool, 8), nullptr);
  EXPECT_EQ(kit::data_of(pool),
            std::to_string(kPointers) + " for " + std::to_string(kPointers * 8));
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(tag_of("AB"), "1 for 20");
  EXPECT_EQ(int{Pool()}, int{pool});
}

}  // namespace
