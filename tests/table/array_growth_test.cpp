#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
#include "diag/log.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Scene;
using kit::StandaloneHandle;

/** The switches of allocation. */
qk_mem_debug* const kCaller = &Qk_mem_debug[4];

qk_mem_ptr* record(StandaloneHandle& handle, std::uintptr_t address, int line = 5) {
  return qk_mem_new_ptr(handle, at(address), 'M', "src/app.c", line, kCaller);
}

/** Records `count` pointers in array 0, from address `first` on. */
void fill(StandaloneHandle& handle, int count, std::uintptr_t first = 0x100) {
  for (int i = 0; i < count; ++i) record(handle, first + static_cast<std::uintptr_t>(i) * 0x80);
}

/** Starts the library, and skips what log and trace file hold by then. */
void start(Scene& scene) {
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
}

TEST(ArrayGrowth, HappensAtThe16thAndThenAtEvery64thPointer) {
  StandaloneHandle handle;
  struct {
    int pointers;
    const char* array;
    const char* sums;
  } constexpr kRows[] = {
      {1, "16 slots, 2 used", "data 1 for 0, overhead 1 for 768, tag 1 for 0"},
      {15, "16 slots, 16 used", "data 15 for 0, overhead 1 for 768, tag 15 for 0"},
      {16, "80 slots, 17 used", "data 16 for 0, overhead 1 for 3840, tag 16 for 0"},
      {79, "80 slots, 80 used", "data 79 for 0, overhead 1 for 3840, tag 79 for 0"},
      {80, "144 slots, 81 used", "data 80 for 0, overhead 1 for 6912, tag 80 for 0"},
      {144, "208 slots, 145 used", "data 144 for 0, overhead 1 for 9984, tag 144 for 0"},
  };
  int recorded = 0;
  for (const auto& row : kRows) {
    fill(handle, row.pointers - recorded, 0x1000 + static_cast<std::uintptr_t>(recorded) * 0x80);
    recorded = row.pointers;
    EXPECT_EQ(handle.array(), row.array);
    EXPECT_EQ(handle.sums(), row.sums);
  }
}

TEST(ArrayGrowth, UpdatesTheArraysRecordWithTheCallersLocation) {
  StandaloneHandle handle;
  fill(handle, 15);
  Qk_mem_seq = 70;
  qk_mem_new_ptr(handle, at(0x9000), 'M', "lib/other.c", 70000, kCaller);
  const qk_mem_ptr& own = handle->ptrs[0].ptrs[0];
  EXPECT_EQ(own.address, handle->ptrs[0].ptrs);
  EXPECT_EQ(own.kind, 'P');
  EXPECT_EQ(own.count, 80U);
  EXPECT_EQ(own.size, 48U);
  EXPECT_STREQ(own.file, "other.c");
  EXPECT_EQ(own.line, 4464) << "a record keeps 16 bits of the line";
  EXPECT_EQ(own.seq, 71U);
}

TEST(ArrayGrowth, KeepsRecordsAndClearsTheNewSlots) {
  StandaloneHandle handle;
  fill(handle, 16);
  const qk_mem_ptr* slots = handle->ptrs[0].ptrs;
  for (std::uintptr_t i = 0; i < 16; ++i) EXPECT_EQ(slots[i + 1].address, at(0x100 + i * 0x80));
  for (int i = 17; i < 80; ++i) {
    EXPECT_EQ(slots[i].address, nullptr) << i;
    EXPECT_EQ(slots[i].kind, 0) << i;
    EXPECT_EQ(slots[i].count, 0U) << i;
  }
}

TEST(ArrayGrowth, WaitsUntilFreedSlotsAreFilled) {
  StandaloneHandle handle;
  fill(handle, 15);
  qk_mem_free_ptr(handle, qk_mem_get_ptr(handle, at(0x100)));
  record(handle, 0x9000);
  EXPECT_EQ(handle.array(), "16 slots, 16 used");
}

TEST(ArrayGrowth, IsTracedUnderDebug) {
  Scene scene(kit::Environment{"DEBUG", "HEAPSIZE DB", ""});
  start(scene);
  StandaloneHandle handle;
  fill(handle, 15);
  EXPECT_EQ(scene.log(), "   qk_mem_new_ptr:        7 [p1] P 16/48 app.c:5 (heap change)\n");
  EXPECT_EQ(scene.trace(), "7 P [p1] 16 48 app.c 5 768\n");
  scene.skip_log();
  scene.skip_trace();
  record(handle, 0x9000, 70001);
  EXPECT_EQ(scene.log(), "   qk_mem_new_ptr:        7 [p1] P 80/48 app.c:4465 (heap change)\n");
  EXPECT_EQ(scene.trace(), "7 P [p1] 80 48 app.c 70001 3072\n");
}

TEST(ArrayGrowth, ShowsTheArraysAddressAndAnyHandleNumber) {
  Scene scene("DEBUG");
  start(scene);
  StandaloneHandle handle(1234);
  record(handle, 0x1000);
  char line[100];
  std::snprintf(line, sizeof line, "   qk_mem_new_ptr:      1234 [%016zx] P 16/48 app.c:5\n",
                reinterpret_cast<std::size_t>(handle->ptrs[0].ptrs));
  std::fflush(Qk_mem_log);
  const std::string log = kit::contents("qkmem.log");
  EXPECT_TRUE(log.ends_with(line)) << log << "should end with\n" << line;
}

TEST(ArrayGrowth, FollowsTheSwitchesOfTheCaller) {
  Scene scene("DEBUG=qk_ifree");
  start(scene);
  StandaloneHandle handle;
  record(handle, 0x1000);
  EXPECT_EQ(scene.log(), "");
  qk_mem_new_ptr(handle, at(0x1010), 'M', "src/app.c", 6, &Qk_mem_debug[7]);
  EXPECT_EQ(scene.log(), "   qk_mem_new_ptr:        7 [p1] P 16/48 app.c:6\n");
}

TEST(ArrayGrowth, IsTracedEvenIfNothingIsLogged) {
  Scene scene(kit::Environment{"EXCEPTIONS", "DB", ""});
  start(scene);
  StandaloneHandle handle;
  record(handle, 0x1000);
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(scene.trace(), "7 P [p1] 16 48 app.c 5 768\n");
}

TEST(FailedArrayGrowth, LeavesTheLargerCapacityWithoutMemory) {
  StandaloneHandle handle;
  kit::fail_request(1);
  EXPECT_EQ(record(handle, 0x1000), nullptr);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(handle.array(), "16 slots, 0 used, no memory");
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
}

TEST(FailedArrayGrowth, LosesTheRecordsAndKeepsTheSums) {
  StandaloneHandle handle;
  fill(handle, 15);
  kit::fail_request(1);
  EXPECT_EQ(record(handle, 0x9000), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(handle.array(), "80 slots, 16 used, no memory");
  EXPECT_EQ(handle.sums(), "data 15 for 0, overhead 1 for 768, tag 15 for 0");
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x100)), nullptr);
}

TEST(FailedArrayGrowth, DoesNotCountAnEvent) {
  StandaloneHandle handle;
  Qk_mem_seq = 41;
  kit::fail_request(1);
  record(handle, 0x1000);
  EXPECT_EQ(Qk_mem_seq, 41U);
}

/** The log of an array of 16 slots that can't grow, and of two more pointers for it. */
std::string log_of_a_failed_growth(const char* debug) {
  Scene scene(kit::Environment{debug, "HEAPSIZE DB", ""});
  start(scene);
  StandaloneHandle handle;
  fill(handle, 15);
  scene.skip_log();
  scene.skip_trace();
  kit::fail_request(1);
  record(handle, 0x9000, 70000);
  record(handle, 0x9000);
  record(handle, 0xa000);
  EXPECT_EQ(scene.trace(), "");
  return scene.log();
}

constexpr char kLogOfAFailedGrowth[] =
    "   qk_mem_new_ptr: ERROR: realloc of 3840 at app.c:70000 of a->ptrs failed: 12 Cannot allocate memory\n"
    "   qk_mem_new_ptr: WARNING: ptr array not large enough\n"
    "   qk_mem_new_ptr: WARNING: ptr array not large enough\n";

TEST(FailedArrayGrowth, LogsAnErrorAndLaterWarningsUnderDebug) {
  EXPECT_EQ(log_of_a_failed_growth("DEBUG"), kLogOfAFailedGrowth);
}

TEST(FailedArrayGrowth, LogsAnErrorAndLaterWarningsUnderExceptions) {
  EXPECT_EQ(log_of_a_failed_growth("EXCEPTIONS"), kLogOfAFailedGrowth);
}

TEST(FailedArrayGrowth, IsSilentUnderOtherSwitches) {
  EXPECT_EQ(log_of_a_failed_growth("SUMMARY TRACE"), "");
}

TEST(FailedArrayGrowth, IsPermanent) {
  StandaloneHandle handle;
  kit::fail_request(1);
  record(handle, 0x1000);
  for (std::uintptr_t i = 1; i < 200; ++i) EXPECT_EQ(record(handle, i * 0x80), nullptr);
  EXPECT_EQ(handle.array(), "16 slots, 0 used, no memory");
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
}

TEST(FailedArrayGrowth, LetsFreeAndLookUpFindNothing) {
  StandaloneHandle handle;
  qk_mem_ptr copy = *record(handle, 0x1000);
  fill(handle, 14);
  kit::fail_request(1);
  record(handle, 0x9000);
  qk_mem_free_ptr(handle, &copy);
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1000)), nullptr);
  EXPECT_EQ(handle.array(), "80 slots, 16 used, no memory");
  EXPECT_EQ(handle.sums(), "data 15 for 0, overhead 1 for 768, tag 15 for 0");
}

TEST(FailedArrayGrowth, LeavesTheOtherArraysAlone) {
  StandaloneHandle handle;
  kit::fail_request(1);
  record(handle, 0x1000);
  qk_mem_ptr* slot = record(handle, 0x1010);
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1010)), slot);
  EXPECT_EQ(handle.sums(), "data 1 for 0, overhead 1 for 768, tag 1 for 0");
}

TEST(FailedArrayGrowth, ReleasesTheHandlesMutex) {
  StandaloneHandle handle;
  qk::Mtx mtx;
  handle->mtx = &mtx;
  kit::fail_request(1);
  record(handle, 0x1000);
  EXPECT_FALSE(mtx.held());
  record(handle, 0x1000);
  EXPECT_FALSE(mtx.held());
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1000)), nullptr);
  EXPECT_FALSE(mtx.held());
}

TEST(FailedArrayGrowth, ResultsFromMoreBytesThan32BitsHold) {
  Scene scene("EXCEPTIONS");
  start(scene);
  StandaloneHandle handle;
  handle->ptrs[0].capacity = handle->ptrs[0].used = 89478430;
  EXPECT_EQ(record(handle, 0x1000), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(handle.array(), "89478494 slots, 89478430 used, no memory");
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_new_ptr: ERROR: realloc of 4294967712 at app.c:5 of a->ptrs failed: 12 Cannot allocate memory\n");
}

TEST(FullArray, CausesAWarningIfItsUsedCountIsTooLow) {
  Scene scene("EXCEPTIONS");
  start(scene);
  StandaloneHandle handle;
  fill(handle, 15);
  handle->ptrs[0].used = 15;
  EXPECT_EQ(record(handle, 0x9000), nullptr);
  EXPECT_EQ(scene.log(), "   qk_mem_new_ptr: WARNING: ptr array not large enough\n");
  EXPECT_EQ(handle.array(), "16 slots, 15 used");
  EXPECT_EQ(handle.sums(), "data 15 for 0, overhead 1 for 768, tag 15 for 0");
}

TEST(LargeTable, RecordsAndReleasesManyPointers) {
  kit::align_requests();
  StandaloneHandle handle;
  fill(handle, 10000, 0x130);
  EXPECT_EQ(handle.array(3), "10064 slots, 10001 used");
  EXPECT_EQ(handle->qty, 10000U);
  const std::string overhead =
      std::to_string(handle->overhead_qty) + " for " + std::to_string(handle->overhead_amount);
  for (std::uintptr_t i = 0; i < 10000; ++i) {
    qk_mem_ptr* slot = qk_mem_get_ptr(handle, at(0x130 + i * 0x80));
    ASSERT_NE(slot, nullptr) << i;
    qk_mem_free_ptr(handle, slot);
  }
  EXPECT_EQ(handle.array(3), "10064 slots, 1 used") << "arrays never shrink";
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead " + overhead + ", tag 0 for 0");
}

}  // namespace
