#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <typeinfo>

#include "accounting/kept_calls.h"
#include "core/records.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_table.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Environment;
using kit::handle_of;
using kit::Pool;
using kit::Scene;

/** The switches of malloc. */
qk_mem_debug* const kCaller = &Qk_mem_debug[4];

const std::string kHandleSize = std::to_string(sizeof(qk_mem_handle));

/** Memory whose address belongs in pointer array 0. It is released by free. */
void* memory_for_array_0(std::size_t size) {
  void* memory = std::aligned_alloc(128, (size + 127) / 128 * 128);
  std::memset(memory, 0, size);
  return memory;
}

/** Makes a record, and fills it as callers of qk_mem_new_ptr() do. */
qk_mem_ptr& record(int hid, void* address, char kind, std::uint64_t count = 1,
                   std::uint64_t size = 10, int line = 5) {
  qk_mem_handle& handle = handle_of(hid);
  qk_mem_ptr* record = qk_mem_new_ptr(&handle, address, static_cast<unsigned char>(kind),
                                      "src/app.c", line, kCaller);
  record->file = "app.c";
  record->line = static_cast<std::uint16_t>(line);
  record->count = count;
  record->size = size;
  record->seq = ++Qk_mem_seq;
  if (kind == 'H' || kind == 'T') {
    handle.overhead_amount += count * size;
  } else {
    handle.amount += count * size;
    handle.tag->amount += count * size;
  }
  return *record;
}

/**
 * Handle 3 with its own record in array 0, so that the releases of array 0 come in the order of
 * recording.
 */
int handle_in_array_0() {
  qk_mem_init();
  auto* handle = static_cast<qk_mem_handle*>(memory_for_array_0(sizeof(qk_mem_handle)));
  handle->id = 3;
  handle->type = 'D';
  handle->track = 1;
  handle->tag = &Qk_mem_global_tag;
  handle->file = "pool.c";
  handle->line = 7;
  Qk_mem_handles[2] = handle;
  ++Qk_mem_num_handles;
  qk_mem_handle_memory(handle, handle, sizeof *handle, 'C', "tests/pool.c", 7, kCaller);
  return 3;
}

int destroy(int hid) { return qk_mem_idel_handle(hid, "lib/other.c", 80000); }

/** Deletes a handle and returns what that logs. scene.trace() then has only its rows. */
std::string log_of_deletion(Scene& scene, int hid) {
  scene.skip_log();
  scene.skip_trace();
  EXPECT_EQ(destroy(hid), 0);
  return scene.log();
}

TEST(Deletion, TracesRecordsThenArraysThenTheHandle) {
  Scene scene(Environment{"DEBUG", "HEAPSIZE DB", ""});
  const int hid = handle_in_array_0();
  record(hid, memory_for_array_0(10), 'M');
  record(hid, memory_for_array_0(30), 'C', 3, 10, 70000);
  record(hid, at(0x1010), 'm');
  EXPECT_EQ(
      log_of_deletion(scene, hid),
      "   qk_mem_idel_handle:    3 [p1] F other.c:80000; H " + kHandleSize +
          " pool.c:7 (heap change)\n"
          "   qk_mem_idel_handle:    3 [p2] F other.c:80000; M 10 app.c:5 (heap change)\n"
          "   qk_mem_idel_handle:    3 [p3] F other.c:80000; C 3/10 app.c:4464 (heap change)\n"
          "   qk_mem_idel_handle:    3 [p4] f other.c:80000; m 10 app.c:5 (heap change)\n"
          "   qk_mem_idel_handle:    3 [p5] F other.c:80000; P 16/48 pool.c:7 (heap change)\n"
          "   qk_mem_idel_handle:    3 [p6] F other.c:80000; P 16/48 app.c:5 (heap change)\n"
          "   qk_mem_idel_handle:    3 D other.c:80000; pool.c:7 (heap change)\n");
  EXPECT_EQ(scene.trace(), "3 F [p1] 1 " + kHandleSize + " other.c 80000 -" + kHandleSize +
                               "\n"
                               "3 F [p2] 1 10 other.c 80000 -10\n"
                               "3 F [p3] 3 10 other.c 80000 -30\n"
                               "3 f [p4] 1 10 other.c 80000 0\n"
                               "3 F [p5] 16 48 other.c 80000 -768\n"
                               "3 F [p6] 16 48 other.c 80000 -768\n"
                               "3 D [p0] 0 0 other.c 80000 0\n");
}

struct KindRow {
  char kind;
  bool allocated;    // its memory is freed
  const char* line;  // of its release
  const char* row;
};

constexpr KindRow kKinds[] = {
    {'M', true, "[p1] F other.c:80000; M 10 app.c:5", "3 F [p1] 2 10 other.c 80000 -20\n"},
    {'C', true, "[p1] F other.c:80000; C 2/10 app.c:5", "3 F [p1] 2 10 other.c 80000 -20\n"},
    {'R', true, "[p1] F other.c:80000; R 10 app.c:5", "3 F [p1] 2 10 other.c 80000 -20\n"},
    {'S', true, "[p1] F other.c:80000; S 10 app.c:5", "3 F [p1] 2 10 other.c 80000 -20\n"},
    {'X', true, "[p1] F other.c:80000; X 10 app.c:5", "3 F [p1] 2 10 other.c 80000 -20\n"},
    {'m', false, "[p1] f other.c:80000; m 10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n"},
    {'c', false, "[p1] f other.c:80000; c 2/10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n"},
    {'r', false, "[p1] f other.c:80000; r 10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n"},
    {'s', false, "[p1] f other.c:80000; s 10 app.c:5", "3 f [p1] 2 10 other.c 80000 0\n"},
    {'W', false, "[p1] E other.c:80000; W 10 app.c:5", "3 E [p1] 2 10 other.c 80000 -20\n"},
    {'J', false, "[p1] K other.c:80000; J 2/10 app.c:5", "3 K [p1] 2 10 other.c 80000 -20\n"},
    {'T', false, "[p1] E other.c:80000; T 10 app.c:5", "3 E [p1] 2 10 other.c 80000 -20\n"},
};

TEST(Deletion, ReleasesEachKindInItsOwnWay) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  for (const KindRow& row : kKinds) {
    const int hid = handle_in_array_0();
    qk_mem_free_ptr(&handle_of(hid), qk_mem_get_ptr(&handle_of(hid), &handle_of(hid)));
    record(hid, row.allocated ? memory_for_array_0(20) : at(0x1000), row.kind, 2);
    const std::string log = log_of_deletion(scene, hid);
    const std::string first = log.substr(0, log.find('\n'));
    EXPECT_EQ(first, "   qk_mem_idel_handle:    3 " + std::string(row.line));
    const std::string trace = scene.trace();
    EXPECT_EQ(trace.substr(0, trace.find('\n') + 1), row.row);
  }
}

TEST(Deletion, ShowsTheMutexAsAnObject) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  const int hid = handle_in_array_0();
  qk_mem_handle& handle = handle_of(hid);
  handle.mtx = new qk::Mtx;
  qk_mem_handle_memory(&handle, handle.mtx, sizeof(qk::Mtx), 'W', "tests/pool.c", 7, kCaller);
  scene.skip_trace();
  destroy(hid);
  const std::string size = std::to_string(sizeof(qk::Mtx));
  EXPECT_EQ(scene.trace("E"), "3 E [p1] 1 " + size + " other.c 80000 -" + size + "\n");
  EXPECT_NE(scene.log().find("] E other.c:80000; H " + size + " pool.c:7\n"), std::string::npos);
}

TEST(Deletion, WarnsOfUnknownBookkeepingUnderThePreviousLetter) {
  struct {
    char kind_before;
    const char* letter;
  } constexpr kRows[] = {{'T', "E"}, {'J', "K"}, {'m', "f"}};
  Scene scene(Environment{"DEBUG", "DB", ""});
  for (const auto& row : kRows) {
    const int hid = handle_in_array_0();
    record(hid, at(0x1000), row.kind_before);
    record(hid, at(0x2000), 'H', 2, 50);
    const std::string log = log_of_deletion(scene, hid);
    EXPECT_NE(
        log.find(
            "   qk_mem_idel_handle: WARNING:   3 [p3] unknown HANDLE MEMORY ptr at other.c:80000\n"
            "   qk_mem_idel_handle:    3 [p3] " +
            std::string(row.letter) + " other.c:80000; H 50 app.c:5\n"),
        std::string::npos)
        << log;
  }
}

TEST(Deletion, ShowsUnknownBookkeepingAfterTheHandleAsFreed) {
  Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  const int hid = handle_in_array_0();
  record(hid, at(0x2000), 'H', 2, 50);
  EXPECT_EQ(
      log_of_deletion(scene, hid),
      "   qk_mem_idel_handle: WARNING:   3 [p1] unknown HANDLE MEMORY ptr at other.c:80000\n");
  EXPECT_EQ(scene.trace(), "3 F [p1] 1 " + kHandleSize + " other.c 80000 -" + kHandleSize +
                               "\n"
                               "3 F [p2] 2 50 other.c 80000 -100\n"
                               "3 F [p3] 16 48 other.c 80000 -768\n"
                               "3 D [p0] 0 0 other.c 80000 0\n");
}

TEST(Deletion, IsSilentAboutUnknownBookkeepingUnderOtherSwitches) {
  Scene scene("SUMMARY EXCEPTIONS=qk_ifree");
  const int hid = handle_in_array_0();
  record(hid, at(0x2000), 'H');
  EXPECT_EQ(log_of_deletion(scene, hid), "");
}

TEST(Deletion, ReleasesMemoryOnceIfItWasRecordedTwice) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  const int hid = handle_in_array_0();
  void* memory = memory_for_array_0(10);
  record(hid, memory, 'M');
  record(hid, memory, 'X', 1, 10, 6);
  EXPECT_EQ(log_of_deletion(scene, hid),
            "   qk_mem_idel_handle:    3 [p1] F other.c:80000; H " + kHandleSize +
                " pool.c:7\n"
                "   qk_mem_idel_handle:    3 [p2] F other.c:80000; M 10 app.c:5\n"
                "   qk_mem_idel_handle:    3 [p2] F other.c:80000; X 10 app.c:6\n"
                "   qk_mem_idel_handle:    3 [p3] F other.c:80000; P 16/48 pool.c:7\n"
                "   qk_mem_idel_handle:    3 D other.c:80000; pool.c:7\n");
}

TEST(Deletion, ReleasesMemoryOnceAmongManyDoubleRecords) {
  Scene scene("");
  Pool keeper("", "AB");
  for (int i = 0; i < 1000; ++i) qk_mem_imalloc(keeper, 1, 16, "src/app.c", 5);
  Pool pool("", "AB");
  for (int i = 0; i < 300; ++i) {
    void* memory = qk_mem_imalloc(pool, 10, 16, "src/app.c", 5);
    if (i % 3 == 0) record(pool, memory, 'M');
    if (i % 5 == 0) record(pool, memory, 'X');
  }
  EXPECT_EQ(kit::tag_of("AB"), "1460 for 5600");
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(kit::tag_of("AB"), "999 for 1000") << "460 pointers and the handle's own record";
}

/** Counts how often it is destroyed. */
class Tracker : public qk::MemTracker {
 public:
  explicit Tracker(int& destroyed) : destroyed_(destroyed) {}
  ~Tracker() override { ++destroyed_; }
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(int); }
  [[nodiscard]] bool same_type(const qk::MemTracker&) const override { return true; }

 private:
  int& destroyed_;
};

TEST(Deletion, DestroysObjectsAndArraysThroughTheirTrackersOnce) {
  for (const char kind : {'W', 'J'}) {
    Scene scene("");
    Pool pool;
    int destroyed = 0;
    auto* tracker = new Tracker(destroyed);
    record(pool, at(0x1000), kind).tracker = tracker;
    record(pool, at(0x1000), kind).tracker = tracker;
    qk_mem_tracker(&pool.record(), tracker, 'W', "src/app.c", 5, kCaller);
    EXPECT_EQ(destroy(pool), 0);
    EXPECT_EQ(destroyed, 1) << kind;
  }
}

TEST(DeletionOfTheOverheadHandle, KeepsTheRecordOfTheHandleArray) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  qk_mem_init();
  const qk_mem_ptr before = *qk_mem_get_ptr(&handle_of(1), Qk_mem_handles);
  EXPECT_EQ(Qk_mem_handles_ptr.address, nullptr);
  log_of_deletion(scene, 1);
  EXPECT_EQ(Qk_mem_handles_ptr.address, Qk_mem_handles);
  EXPECT_EQ(Qk_mem_handles_ptr.kind, 'H');
  EXPECT_EQ(Qk_mem_handles_ptr.count, 512U);
  EXPECT_EQ(Qk_mem_handles_ptr.size, 8U);
  EXPECT_STREQ(Qk_mem_handles_ptr.file, "qkmem.cpp");
  EXPECT_EQ(Qk_mem_handles_ptr.line, before.line);
  EXPECT_EQ(Qk_mem_handles_ptr.seq, before.seq);
  EXPECT_EQ(scene.log().find("512/8"), std::string::npos) << "it isn't released";
  EXPECT_TRUE(scene.log().ends_with("   qk_mem_idel_handle:    1 D other.c:80000; qkmem.cpp:#\n"));
}

TEST(DeletionOfTheOverheadHandle, FreesItsNumber) {
  Scene scene("");
  qk_mem_init();
  EXPECT_EQ(destroy(1), 0);
  EXPECT_EQ(Qk_mem_handles[0], nullptr);
  EXPECT_EQ(Qk_mem_num_handles, 1);
  EXPECT_EQ(destroy(1), 5566);
  EXPECT_EQ(int{Pool()}, 1);
  EXPECT_EQ(int{Pool()}, 3);
}

TEST(DeletionOfTheOverheadHandle, WarnsIfTheHandleArrayHasNoRecord) {
  Scene scene("EXCEPTIONS");
  qk_mem_init();
  qk_mem_free_ptr(&handle_of(1), qk_mem_get_ptr(&handle_of(1), Qk_mem_handles));
  EXPECT_EQ(
      log_of_deletion(scene, 1),
      "   qk_mem_idel_handle: WARNING:   1 [p1] Qk_mem_handles ptr not found at other.c:80000\n");
  EXPECT_EQ(Qk_mem_handles_ptr.address, nullptr);
}

}  // namespace
