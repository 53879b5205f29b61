#include <gtest/gtest.h>

#include <string>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Pool;
using kit::Scene;

int create(const char* options, const char* tag = "") {
  return qk_mem_inew_handle(options, tag, "src/app.c", 5);
}

void start(Scene& scene) {
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
}

/** Registers all tags that a process can have. */
void use_up_tags() {
  for (char c = '!'; Qk_mem_num_tags < 32; ++c) Pool("", std::string(1, c).c_str());
}

struct Refusal {
  const char* options;
  const char* tag;
  int code;
  const char* log;  // of handle creation
};

constexpr Refusal kRefusals[] = {
    {"BAD", "", 11102, "   qk_mem_inew_handle: ERROR: invalid options passed: 10041 BAD\n"},
    {"DATA bad", "AB", 11102, "   qk_mem_inew_handle: ERROR: invalid options passed: 10041 bad\n"},
    {"MULTI", "", 11102, "   qk_mem_inew_handle: ERROR: invalid options passed: 10041 MULTI\n"},
    {"BLOCKFRE", "", 11102,
     "   qk_mem_inew_handle: ERROR: invalid options passed: 10041 BLOCKFRE\n"},
    {"AUTOFREE=YES", "", 11102,
     "   qk_mem_inew_handle: ERROR: invalid options passed: 10042 AUTOFREE\n"},
    {"BLOCKSIZE", "", 11102,
     "   qk_mem_inew_handle: ERROR: invalid options passed: 10043 BLOCKSIZE\n"},
    {"BLOCKSIZE='2", "", 11102,
     "   qk_mem_inew_handle: ERROR: invalid options passed: 10044 BLOCKSIZE\n"},
    {"", "ABC", 11110, "   qk_mem_inew_handle: ERROR: tag length too long: 3 vs 2\n"},
    {"OVERHEAD", "a long tag", 11110,
     "   qk_mem_inew_handle: ERROR: tag length too long: 10 vs 2\n"},
};

TEST(RefusedHandle, SetsACodeAndLeavesTheNumberFree) {
  Scene scene("");
  for (const Refusal& refusal : kRefusals) {
    Qk_mem_error = 0;
    EXPECT_EQ(create(refusal.options, refusal.tag), 0) << refusal.options;
    EXPECT_EQ(qk_mem_error(), refusal.code) << refusal.options;
    EXPECT_EQ(Qk_mem_num_handles, 2);
  }
  EXPECT_EQ(Qk_mem_num_tags, 0);
  EXPECT_EQ(create(""), 3);
}

TEST(RefusedHandle, IsLoggedWithItsReasonUnderExceptions) {
  Scene scene("EXCEPTIONS");
  start(scene);
  for (const Refusal& refusal : kRefusals) {
    scene.skip_log();
    create(refusal.options, refusal.tag);
    EXPECT_EQ(scene.log(), refusal.log) << refusal.options;
  }
}

TEST(RefusedHandle, ShowsNoCreationLocationWhenItIsDeleted) {
  Scene scene(Environment{"DEBUG", "HEAPSIZE DB", ""});
  start(scene);
  create("BAD");
  create("MULTITHREADED", "ABC");
  EXPECT_EQ(scene.log(),
            "   qk_mem_inew_handle: ERROR: invalid options passed: 10041 BAD\n"
            "   qk_mem_idel_handle:    3 D app.c:5; (null):0 (heap change)\n"
            "   qk_mem_inew_handle: ERROR: tag length too long: 3 vs 2\n"
            "   qk_mem_idel_handle:    3 D app.c:5; (null):0 (heap change)\n");
  EXPECT_EQ(scene.trace(),
            "3 D [p0] 0 0 app.c 5 0\n"
            "3 D [p0] 0 0 app.c 5 0\n");
}

TEST(RefusedHandle, IsNotLoggedUnderOtherSwitches) {
  Scene scene("SUMMARY TRACE");
  start(scene);
  create("BAD");
  create("", "ABC");
  kit::fail_request(1);
  create("");
  EXPECT_EQ(scene.log(), "");
}

TEST(RefusedHandle, FollowsTheSwitchesOfCreation) {
  Scene scene("EXCEPTIONS=qk_mem_inew_handle");
  start(scene);
  create("BAD");
  EXPECT_EQ(scene.log(), "   qk_mem_inew_handle: ERROR: invalid options passed: 10041 BAD\n");
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("EXCEPTIONS=not,qk_mem_inew_handle", &status), 0);
  create("BAD");
  EXPECT_EQ(scene.log(), "   qk_mem_inew_handle: ERROR: invalid options passed: 10041 BAD\n");
}

TEST(RefusedHandle, ResultsFromOptionsOfMoreThan256Characters) {
  Scene scene("EXCEPTIONS");
  start(scene);
  const std::string options = std::string(249, ' ') + "OVERHEAD";
  EXPECT_EQ(create(options.c_str()), 0);
  EXPECT_EQ(qk_mem_error(), 11102);
  EXPECT_EQ(scene.log().rfind("   qk_mem_inew_handle: ERROR: invalid options passed: ", 0), 0U);
}

TEST(RefusedHandle, ResultsFromThe33rdTag) {
  Scene scene("DEBUG");
  use_up_tags();
  const int next = create("");
  scene.skip_log();
  EXPECT_EQ(create("MULTITHREADED", "zz"), 0);
  EXPECT_EQ(qk_mem_error(), 11110);
  EXPECT_EQ(Qk_mem_num_tags, 32);
  EXPECT_EQ(scene.log(),
            "   qk_mem_register_tag: ERROR: Max number of accounting tags reached: 32\n"
            "   qk_mem_idel_handle:   36 D app.c:5; (null):0\n");
  EXPECT_EQ(create("", "!"), next + 1) << "a known tag still works";
}

TEST(FullTagTable, IsReportedUnderTheGlobalSwitches) {
  Scene scene("EXCEPTIONS=qk_ifree");
  use_up_tags();
  scene.skip_log();
  create("", "zz");
  EXPECT_EQ(scene.log(),
            "   qk_mem_register_tag: ERROR: Max number of accounting tags reached: 32\n");
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("EXCEPTIONS=not,global", &status), 0);
  scene.skip_log();
  create("", "zz");
  EXPECT_EQ(scene.log(), "");
}

TEST(HandleWithoutMemory, LeavesTheHandleCountRaised) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  start(scene);
  kit::fail_request(1);
  EXPECT_EQ(create("MULTITHREADED", "AB"), 0);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(scene.log(),
            "   qk_mem_inew_handle: ERROR: calloc of handle failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(scene.trace(), "");
  EXPECT_EQ(Qk_mem_num_handles, 3) << "it isn't lowered again";
  EXPECT_EQ(Qk_mem_num_tags, 0);
  EXPECT_EQ(create(""), 3);
  EXPECT_EQ(Qk_mem_num_handles, 4);
}

TEST(HandleWithoutMutex, IsDeletedAgain) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  start(scene);
  kit::fail_request(2);
  EXPECT_EQ(create("MULTITHREADED", "AB"), 0);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(scene.log(),
            "   qk_mem_inew_handle: ERROR: new of mtx failed: 12 Cannot allocate memory\n"
            "   qk_mem_idel_handle:    3 D app.c:5; (null):0\n");
  EXPECT_EQ(scene.trace(), "3 D [p0] 0 0 app.c 5 0\n");
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_EQ(Qk_mem_num_tags, 0);
}

TEST(HandleWithoutMemory, IsReportedUnderExceptions) {
  Scene scene("EXCEPTIONS");
  start(scene);
  kit::fail_request(1);
  create("");
  kit::fail_request(2);
  create("MULTITHREADED");
  EXPECT_EQ(scene.log(),
            "   qk_mem_inew_handle: ERROR: calloc of handle failed: 12 Cannot allocate memory\n"
            "   qk_mem_inew_handle: ERROR: new of mtx failed: 12 Cannot allocate memory\n");
}

TEST(HandleWithoutPointerArray, IsCreatedNevertheless) {
  Scene scene("EXCEPTIONS");
  start(scene);
  kit::fail_request(2);
  Pool pool;
  EXPECT_EQ(int{pool}, 3);
  EXPECT_EQ(kit::overhead_of(pool), "0 for 0");
  EXPECT_EQ(qk_mem_get_ptr(&pool.record(), &pool.record()), nullptr);
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_new_ptr: ERROR: realloc of 768 at pool.c:7 of a->ptrs failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(qk_mem_error(), 5012);
}

TEST(FailedCreation, ReleasesTheRegistrysLock) {
  Scene scene("");
  qk_mem_init();
  create("BAD");
  EXPECT_FALSE(Qk_mem_mtx.held());
  kit::fail_request(1);
  create("");
  EXPECT_FALSE(Qk_mem_mtx.held());
  kit::fail_request(2);
  create("MULTITHREADED");
  EXPECT_FALSE(Qk_mem_mtx.held());
}

TEST(SuccessfulCreation, KeepsTheErrorOfAnEarlierFailure) {
  Scene scene("");
  create("BAD");
  EXPECT_EQ(create("OVERHEAD"), 3);
  EXPECT_EQ(qk_mem_error(), 11102);
}

}  // namespace
