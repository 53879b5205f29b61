#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "core/registry.h"
#include "diag/log.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::Scene;

TEST(FailedStartUp, IsNotRetriedAfterInvalidOptions) {
  const Scene scene;
  const Ended ended = kit::run({"DEBUG SUMMARY", "HEAPSIZE NONSENSE", ""}, [] {
    qk_mem_init();
    std::printf("error %d, started %d, handles %d\n", qk_mem_error(), Qk_mem_initialized,
                Qk_mem_num_handles);
    setenv("QK_MEM_OPTIONS", "HEAPSIZE", 1);
    qk_mem_init();
    std::printf("handles %d\n", Qk_mem_num_handles);
    if (qk_mem_imalloc(QK_MEM_DATA_HANDLE, 8, 16, "src/app.c", 5) == nullptr) {
      std::printf("no memory, error %d\n", qk_mem_error());
    }
  });
  EXPECT_EQ(ended.out,
            "error 10041, started 1, handles 0\n"
            "handles 0\n"
            "no memory, error 5566\n");
  // Nor is the report at exit registered.
  EXPECT_EQ(ended.log,
            "QK_MEM_DEBUG:  initializing options [DEBUG SUMMARY]\n"
            "   qk_mem_imalloc: ERROR: invalid hid 2 at app.c:5\n");
}

/** The log of a start-up whose `nth` request for memory fails, followed by the error code. */
std::string log_of_failing_request(int nth, const char* debug) {
  const Ended ended = kit::run({debug, "", ""}, [nth] {
    kit::align_requests();
    (void)qk_heapsize();
    (void)qk_mem_error();
    kit::fail_request(nth);
    qk_mem_init();
    kit::let_succeed();
    qk_mem_write_log("%d\n", qk_mem_error());
    std::fflush(nullptr);
    _Exit(0);
  });
  return ended.log;
}

TEST(FailedStartUp, LeavesNoHandleIfTheFirstCannotBeCreated) {
  const Scene scene;
  const std::string failed =
      "   qk_mem_inew_handle: ERROR: calloc of handle array failed: 12 Cannot allocate memory\n"
      "   qk_mem_init: ERROR: Failure opening overhead handle: 5012\n"
      "5012\n";
  EXPECT_EQ(log_of_failing_request(1, "EXCEPTIONS"),
            "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\n" + failed);
}

TEST(FailedStartUp, MayLackOnlyTheDataHandle) {
  const Scene scene;
  const std::string expected =
      "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\n"
      "   qk_mem_inew_handle: ERROR: calloc of handle failed: 12 Cannot allocate memory\n"
      "   qk_mem_init: ERROR: Failure opening data handle: 5012\n"
      "5012\n";
  std::set<std::string> logs;
  for (int nth = 2; nth <= 30; ++nth) logs.insert(log_of_failing_request(nth, "EXCEPTIONS"));
  EXPECT_TRUE(logs.contains(expected)) << testing::PrintToString(logs);
}

TEST(FailedStartUp, LetsHandle2FreeSinglyWhateverItsOptions) {
  const Scene scene;
  const Ended ended = kit::run({}, [] {
    kit::align_requests();
    (void)qk_heapsize();
    (void)qk_mem_error();
    kit::fail_request(6);  // the second handle
    qk_mem_init();
    const int hid = qk_mem_inew_handle("BLOCKMGMT", "", "src/app.c", 1);
    std::printf("number %d, frees singly: %d\n", hid, qk_mem_frees_singly(hid, "src/app.c", 2));
  });
  EXPECT_EQ(ended.out, "number 2, frees singly: 1\n");
}

TEST(FailedStartUp, IsSilentUnlessTheGlobalRecordReports) {
  const Scene scene;
  EXPECT_EQ(log_of_failing_request(1, "SUMMARY"),
            "QK_MEM_DEBUG:  initializing options [SUMMARY]\n"
            "5012\n");
  EXPECT_EQ(
      log_of_failing_request(1, "EXCEPTIONS=not,global"),
      "QK_MEM_DEBUG:  initializing options [EXCEPTIONS=not,global]\n"
      "   qk_mem_inew_handle: ERROR: calloc of handle array failed: 12 Cannot allocate memory\n"
      "5012\n");
}

}  // namespace
