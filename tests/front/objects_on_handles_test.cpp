#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "qkmem/qkmem.hpp"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/line_above.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"

/** Objects on handles of each kind, on handles that can't record them, and on deleted handles. */
namespace {

using kit::Environment;
using kit::line_above;
using kit::Scene;

/** Records its destruction. */
class Part {
 public:
  explicit Part(std::string name = "part") : name_(std::move(name)) { ++alive; }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part() {
    --alive;
    ends += name_ + " ";
  }

  static inline int alive = 0;
  static inline std::string ends;

 private:
  std::string name_;
};

void configure(const char* debug) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
}

TEST(DeletingAHandle, DestroysItsObjectsOnceInRecordOrder) {
  kit::align_requests();
  Scene scene("EXCEPTIONS");
  {
    const qk::Handle pool;
    for (const char* name : {"first", "second", "third", "fourth"}) {
      static_cast<void>(qk::make<Part>(pool, name));
    }
    Part* const second = qk::make<Part>(pool, "gone");
    qk::destroy(pool, second);
    Part::ends.clear();
    scene.skip_log();
  }
  EXPECT_EQ(Part::ends, "first second third fourth ");
  EXPECT_EQ(Part::alive, 0);
  EXPECT_EQ(scene.log(), "");
}

TEST(DeletingAHandle, DestroysAnObjectInAReusedSlotFirst) {
  kit::align_requests();
  Scene scene("");
  qk::Handle pool;
  Part* const first = qk::make<Part>(pool, "first");
  static_cast<void>(qk::make<Part>(pool, "second"));
  qk::destroy(pool, first);
  static_cast<void>(qk::make<Part>(pool, "third"));
  Part::ends.clear();
  pool = qk::Handle();
  EXPECT_EQ(Part::ends, "third second ") << "records take the first free slot";
}

TEST(DeletingAHandle, DestroysArraysToo) {
  Scene scene("EXCEPTIONS");
  {
    const qk::Handle pool;
    static_cast<void>(qk::make_array<Part>(pool, 3));
    static_cast<void>(qk::make<Part>(pool));
    scene.skip_log();
    EXPECT_EQ(Part::alive, 4);
  }
  EXPECT_EQ(Part::alive, 0);
  EXPECT_EQ(Part::ends, "part part part part ");
  EXPECT_EQ(scene.log(), "");
}

TEST(DeletingAHandle, DestroysManyObjectsOnce) {
  Scene scene("");
  {
    const qk::Handle pool("MULTITHREADED");
    for (int i = 0; i < 20000; ++i) static_cast<void>(qk::make<Part>(pool, ""));
    EXPECT_EQ(Part::alive, 20000);
  }
  EXPECT_EQ(Part::alive, 0);
  EXPECT_EQ(Part::ends.size(), 20000U);
}

TEST(ClearingAHandle, DestroysItsObjects) {
  Scene scene("EXCEPTIONS");
  qk::Handle arena("BLOCKMGMT");
  static_cast<void>(qk::make<Part>(arena));
  static_cast<void>(qk::make_array<Part>(arena, 2));
  EXPECT_EQ(arena.clear(), 0);
  EXPECT_EQ(Part::ends, "part part part ");
  Part* const again = qk::make<Part>(arena, "again");
  qk::destroy(arena, again);
  EXPECT_EQ(Part::alive, 0);
}

TEST(BlockManagedHandle, HoldsObjectsWithAndWithoutBlockfree) {
  for (const char* options : {"BLOCKMGMT", "BLOCKMGMT BLOCKFREE"}) {
    Scene scene("EXCEPTIONS");
    const qk::Handle arena(options);
    scene.skip_log();
    Part* const part = qk::make<Part>(arena);
    EXPECT_EQ(kit::handle_of(arena.number()).qty, 2U) << "a block and the object";
    qk::destroy(arena, part);
    EXPECT_EQ(Part::alive, 0);
    EXPECT_EQ(scene.log(), "") << options;
  }
}

TEST(DataHandle, HoldsObjectsUnrecordedUnlessConfigured) {
  Scene scene("");
  Part* const part = qk::make<Part>(QK_MEM_DATA_HANDLE);
  Part* const parts = qk::make_array<Part>(QK_MEM_DATA_HANDLE, 2);
  EXPECT_EQ(Part::alive, 3);
  EXPECT_EQ(kit::data_of(QK_MEM_DATA_HANDLE), "0 for 0");
  qk::destroy(QK_MEM_DATA_HANDLE, part);
  qk::destroy<Part[]>(QK_MEM_DATA_HANDLE, parts);
  EXPECT_EQ(Part::alive, 0);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(DataHandle, RecordsObjectsOnceAnythingIsConfigured) {
  Scene scene("EXCEPTIONS");
  Part* const part = qk::make<Part>(QK_MEM_DATA_HANDLE);
  EXPECT_EQ(kit::data_of(QK_MEM_DATA_HANDLE), "1 for " + std::to_string(sizeof(Part)));
  qk::destroy(QK_MEM_DATA_HANDLE, part);
  EXPECT_EQ(qk_mem_size(QK_MEM_DATA_HANDLE), 0U);
  EXPECT_EQ(Part::alive, 0);
}

TEST(DataHandle, DestroysObjectsMadeUnderAnotherConfiguration) {
  Scene scene("");
  Part* const unrecorded = qk::make<Part>(QK_MEM_DATA_HANDLE);
  configure("EXCEPTIONS");
  qk::destroy(QK_MEM_DATA_HANDLE, unrecorded);
  EXPECT_EQ(Part::alive, 0);
  Part* const part = qk::make<Part>(QK_MEM_DATA_HANDLE);
  EXPECT_EQ(Part::alive, 1);
  configure("OFF");
  qk::destroy(QK_MEM_DATA_HANDLE, part);
  EXPECT_EQ(Part::alive, 0);
}

TEST(EmptyHandle, LetsObjectsBeMadeAndDestroyed) {
  Scene scene("");
  const qk::Handle empty("NONSENSE");
  Part* const part = qk::make<Part>(empty);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(Part::alive, 1);
  qk::destroy(empty, part);
  EXPECT_EQ(Part::alive, 0);
}

TEST(HandleWithoutRoom, LeavesTheObjectToTheProgram) {
  Scene scene("EXCEPTIONS");
  Part* part = nullptr;
  {
    const qk::Handle pool;
    kit::fill_arrays(pool.number());
    scene.skip_log();
    kit::fail_request(3);  // after those for the tracker and the object
    part = qk::make<Part>(pool);
    const std::string made = line_above();
    EXPECT_EQ(scene.log(), "   qk_mem_new_ptr: ERROR: realloc of 3840 at " + made +
                               " of a->ptrs failed: 12 Cannot allocate memory\n");
    EXPECT_EQ(qk_mem_error(), 5012);
    EXPECT_EQ(kit::data_of(pool.number()), "0 for 0");
  }
  EXPECT_EQ(Part::alive, 1) << "the handle doesn't own it";
  delete part;
}

TEST(HandleWithoutRoom, WarnsWhenTheObjectIsDestroyed) {
  Scene scene("EXCEPTIONS");
  const qk::Handle pool;
  kit::fill_arrays(pool.number());
  kit::fail_request(3);
  Part* const part = qk::make<Part>(pool);
  scene.skip_log();
  qk::destroy(pool, part);
  const std::string destroyed = line_above();
  const std::string warning =
      "   qk_mem_ideregister: WARNING:   3 [p1] ptr not found at " + destroyed + "\n";
  EXPECT_EQ(scene.log(), warning + warning);
  EXPECT_EQ(Part::alive, 0);
}

/** Is recorded in array 0 of its handle, and its tracker in array 1. */
struct alignas(128) LargePart : Part {};

TEST(HandleWithoutRoom, OwnsAnObjectEvenWithoutItsTrackersRecord) {
  kit::align_requests();
  Scene scene("EXCEPTIONS");
  {
    const qk::Handle pool;
    kit::fill_arrays(pool.number());
    qk_mem_handle& handle = kit::handle_of(pool.number());
    qk_mem_ptr record = handle.ptrs[0].ptrs[1];
    qk_mem_free_ptr(&handle, &record);
    kit::fail_request(2);  // after the one for the tracker itself
    static_cast<void>(qk::make<LargePart>(pool));
    EXPECT_TRUE(kit::has_failed());
    EXPECT_EQ(kit::data_of(pool.number()), "1 for 128");
    EXPECT_EQ(Part::alive, 1);
  }
  EXPECT_EQ(Part::alive, 0);
}

TEST(AnotherHandle, DestroysAnObjectButLeavesItsRecord) {
  Scene scene("EXCEPTIONS");
  const qk::Handle pool;
  const qk::Handle other;
  scene.skip_log();
  Part* const part = qk::make<Part>(pool);
  qk::destroy(other, part);
  const std::string destroyed = line_above();
  const std::string warning =
      "   qk_mem_ideregister: WARNING:   4 [p1] ptr not found at " + destroyed + "\n";
  EXPECT_EQ(scene.log(), warning + warning);
  EXPECT_EQ(Part::alive, 0);
  EXPECT_EQ(kit::data_of(pool.number()), "1 for " + std::to_string(sizeof(Part)))
      << "the record stays on its own handle";
  // Deregistered, so that the handle doesn't destroy the object a second time.
  qk_mem_deregister(pool.number(), QK_MEM_EXTERNAL, part);
}

}  // namespace
