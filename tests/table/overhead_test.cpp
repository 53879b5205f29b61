#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <typeinfo>

#include "accounting/kept_calls.h"
#include "core/records.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Scene;
using kit::StandaloneHandle;

/** Tracks nothing; only its address and size matter. */
class Tracker : public qk::MemTracker {
 public:
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(int); }
  [[nodiscard]] bool same_type(const qk::MemTracker&) const override { return true; }

 private:
  [[maybe_unused]] char more_[100] = {};
};

/** The switches of malloc and of free. */
qk_mem_debug* const kMalloc = &Qk_mem_debug[4];
qk_mem_debug* const kFree = &Qk_mem_debug[7];

void start(Scene& scene) {
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
}

void add_tracker(StandaloneHandle& handle, Tracker& tracker, unsigned char kind = 'W') {
  qk_mem_tracker(handle, &tracker, kind, "src/app.c", 70000, kMalloc);
}

void remove_tracker(StandaloneHandle& handle, qk::MemTracker* tracker, unsigned char kind = 'E',
                    qk_mem_debug* switches = kMalloc) {
  qk_mem_tracker(handle, tracker, kind, "lib/other.c", 80000, switches);
}

void add_memory(StandaloneHandle& handle, unsigned char kind = 'C') {
  qk_mem_handle_memory(handle, at(0x1000), 100, kind, "src/app.c", 70000, kMalloc);
}

TEST(HandleMemory, IsRecordedAsOverhead) {
  StandaloneHandle handle;
  Qk_mem_seq = 41;
  add_memory(handle);
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 2 for 868, tag 0 for 0");
  const qk_mem_ptr* record = qk_mem_get_ptr(handle, at(0x1000));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, 'H');
  EXPECT_EQ(record->count, 1U);
  EXPECT_EQ(record->size, 100U);
  EXPECT_STREQ(record->file, "app.c");
  EXPECT_EQ(record->line, 4464) << "a record keeps 16 bits of the line";
  EXPECT_EQ(record->seq, 43U) << "one event for the array, one for the memory";
  EXPECT_EQ(Qk_mem_seq, 43U);
}

TEST(HandleMemory, IsAlwaysOfKindH) {
  for (const unsigned char kind : {'C', 'W', 'M', 'T', '\0'}) {
    StandaloneHandle handle;
    add_memory(handle, kind);
    EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1000))->kind, 'H') << kind;
    EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 2 for 868, tag 0 for 0") << kind;
  }
}

TEST(HandleMemory, IsTracedWithTheLineOfItsRecord) {
  Scene scene(kit::Environment{"DEBUG", "HEAPSIZE DB", ""});
  start(scene);
  StandaloneHandle handle;
  add_memory(handle);
  EXPECT_EQ(scene.log(),
            "   qk_mem_new_ptr:        7 [p1] P 16/48 app.c:4464 (heap change)\n"
            "   qk_mem_handle_memory:        7 [p2] H 100 app.c:4464 (heap change)\n");
  EXPECT_EQ(scene.trace(),
            "7 P [p1] 16 48 app.c 70000 768\n"
            "7 H [p2] 1 100 app.c 4464 100\n");
}

TEST(HandleMemory, IsTracedUnderTheGlobalSwitchesNotTheCallers) {
  Scene scene("DEBUG=qk_ifree");
  start(scene);
  StandaloneHandle handle;
  add_memory(handle);
  EXPECT_EQ(scene.log(), "   qk_mem_handle_memory:        7 [p1] H 100 app.c:4464\n");
}

TEST(HandleMemory, IsNotTracedIfOnlyTheCallerIsDebugged) {
  Scene scene("DEBUG=not,global");
  start(scene);
  StandaloneHandle handle;
  add_memory(handle);
  EXPECT_EQ(scene.log(), "   qk_mem_new_ptr:        7 [p1] P 16/48 app.c:4464\n");
}

TEST(HandleMemory, StaysUnrecordedWhenTheTableCannotGrow) {
  Scene scene(kit::Environment{"DEBUG", "DB", ""});
  start(scene);
  StandaloneHandle handle;
  kit::fail_request(1);
  add_memory(handle);
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
  EXPECT_EQ(
      scene.log(),
      "   qk_mem_new_ptr: ERROR: realloc of 768 at app.c:70000 of a->ptrs failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(scene.trace(), "");
}

TEST(Tracker, IsRecordedAsOverheadOf16Bytes) {
  for (const unsigned char kind : {'W', 'J'}) {
    StandaloneHandle handle;
    Tracker tracker;
    Qk_mem_seq = 41;
    add_tracker(handle, tracker, kind);
    EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 2 for 784, tag 0 for 0") << kind;
    const qk_mem_ptr* record = qk_mem_get_ptr(handle, &tracker);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->kind, 'T');
    EXPECT_EQ(record->tracker, nullptr);
    EXPECT_EQ(record->count, 1U);
    EXPECT_EQ(record->size, 16U);
    EXPECT_STREQ(record->file, "app.c");
    EXPECT_EQ(record->line, 4464);
    EXPECT_EQ(record->seq, 43U);
  }
}

TEST(Tracker, LowersOverheadBytesButDataQuantityWhenRemoved) {
  for (const unsigned char kind : {'E', 'K'}) {
    StandaloneHandle handle;
    qk_mem_new_ptr(handle, at(0x1000), 'M', "src/app.c", 1, kMalloc);
    Tracker tracker;
    add_tracker(handle, tracker);
    const std::uint64_t arrays = handle->overhead_amount - 16;
    const std::uint32_t quantity = handle->overhead_qty;
    Qk_mem_seq = 41;
    remove_tracker(handle, &tracker, kind);
    EXPECT_EQ(qk_mem_get_ptr(handle, &tracker), nullptr);
    EXPECT_EQ(handle->overhead_amount, arrays) << kind;
    EXPECT_EQ(handle->overhead_qty, quantity) << kind;
    EXPECT_EQ(handle->qty, 0U) << kind;
    EXPECT_EQ(handle.tag.qty, 0U) << kind;
    EXPECT_EQ(Qk_mem_seq, 42U);
  }
}

TEST(Tracker, IsIgnoredUnderAnyOtherKind) {
  for (const unsigned char kind : {'M', 'T', 'H', 'F', 'w', 'e', '\0'}) {
    Scene scene("DEBUG");
    StandaloneHandle handle;
    Tracker tracker;
    Qk_mem_seq = 41;
    qk_mem_tracker(handle, &tracker, kind, "src/app.c", 1, kMalloc);
    EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0") << kind;
    add_tracker(handle, tracker);
    qk_mem_tracker(handle, &tracker, kind, "src/app.c", 1, kMalloc);
    EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 2 for 784, tag 0 for 0") << kind;
    EXPECT_EQ(Qk_mem_seq, 43U) << kind;
  }
}

TEST(Tracker, IsTracedWithTheCallersLine) {
  Scene scene(kit::Environment{"DEBUG", "HEAPSIZE DB", ""});
  start(scene);
  StandaloneHandle handle;
  Tracker tracker;
  add_tracker(handle, tracker);
  EXPECT_EQ(scene.log(),
            "   qk_mem_new_ptr:        7 [p1] P 16/48 app.c:4464 (heap change)\n"
            "   qk_mem_tracker:        7 [p2] T 16 app.c:4464 (heap change)\n");
  EXPECT_EQ(scene.trace(),
            "7 P [p1] 16 48 app.c 70000 768\n"
            "7 T [p2] 1 16 app.c 70000 16\n");
}

TEST(Tracker, IsReleasedAsAnObjectEvenForAnArray) {
  Scene scene(kit::Environment{"DEBUG", "HEAPSIZE DB", ""});
  start(scene);
  for (const unsigned char kind : {'E', 'K'}) {
    StandaloneHandle handle;
    Tracker tracker;
    add_tracker(handle, tracker);
    scene.skip_log();
    scene.skip_trace();
    remove_tracker(handle, &tracker, kind);
    EXPECT_EQ(scene.log(),
              "   qk_mem_tracker:   7 [p1] E other.c:80000; T 16 app.c:4464 (heap change)\n");
    EXPECT_EQ(scene.trace(), "7 E [p1] 1 16 other.c 80000 -16\n");
  }
}

TEST(Tracker, CanBeRemovedAfterItsDestruction) {
  StandaloneHandle handle;
  alignas(Tracker) std::byte storage[sizeof(Tracker)];
  auto* tracker = new (storage) Tracker;
  add_tracker(handle, *tracker);
  tracker->~Tracker();
  remove_tracker(handle, tracker);
  EXPECT_EQ(handle->overhead_amount, 768U);
}

TEST(Tracker, CausesAWarningWithoutARecordAsConfigured) {
  struct {
    const char* debug;
    qk_mem_debug* switches;
    const char* log;
  } const rows[] = {
      {"DEBUG", kFree, "   qk_mem_tracker: WARNING:   7 [p1] ptr not found at other.c:80000\n"},
      {"EXCEPTIONS", kFree,
       "   qk_mem_tracker: WARNING:   7 [p1] ptr not found at other.c:80000\n"},
      {"EXCEPTIONS=qk_ifree", kFree,
       "   qk_mem_tracker: WARNING:   7 [p1] ptr not found at other.c:80000\n"},
      {"DEBUG=qk_ifree", kMalloc, ""},
      {"EXCEPTIONS=qk_ifree", kMalloc, ""},
      {"SUMMARY TRACE", kFree, ""},
  };
  Scene scene("SUMMARY");
  start(scene);
  for (const auto& row : rows) {
    qk::Status status;
    ASSERT_EQ(qk_mem_debug_config(row.debug, &status), 0);
    scene.skip_log();
    StandaloneHandle handle;
    Tracker tracker;
    remove_tracker(handle, &tracker, 'E', row.switches);
    EXPECT_EQ(scene.log(), row.log) << row.debug;
    EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
  }
}

TEST(Tracker, CountsNoEventWithoutARecord) {
  Scene scene(kit::Environment{"DEBUG", "DB", ""});
  start(scene);
  StandaloneHandle handle;
  Tracker tracker;
  Qk_mem_seq = 41;
  remove_tracker(handle, &tracker);
  EXPECT_EQ(Qk_mem_seq, 41U);
  EXPECT_EQ(scene.trace(), "");
}

TEST(Tracker, IsTracedUnderTheGlobalSwitchesNotTheCallers) {
  Scene scene("DEBUG=qk_ifree");
  start(scene);
  StandaloneHandle handle;
  Tracker tracker;
  add_tracker(handle, tracker);
  remove_tracker(handle, &tracker);
  EXPECT_EQ(scene.log(),
            "   qk_mem_tracker:        7 [p1] T 16 app.c:4464\n"
            "   qk_mem_tracker:   7 [p1] E other.c:80000; T 16 app.c:4464\n");
}

TEST(Tracker, StaysUnrecordedWhenTheTableCannotGrow) {
  StandaloneHandle handle;
  Tracker tracker;
  kit::fail_request(1);
  add_tracker(handle, tracker);
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
  EXPECT_EQ(qk_mem_error(), 5012);
}

}  // namespace
