#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <typeinfo>

#include "core/registry.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Environment;
using kit::LoggingTracker;
using kit::Pool;
using kit::Scene;

/** Registers something at app.c:12. */
void register_ptr(int hid, int type, void* ptr, std::size_t size) {
  qk_mem_iregister(hid, type, ptr, nullptr, size, "src/app.c", 12);
}

int destroy(int hid) { return qk_mem_idel_handle(hid, "lib/other.c", 80000); }

/** Handles with objects, whose destruction is noted. */
class DeleteWithObjects : public ::testing::Test {
 protected:
  LoggingTracker* tracker(const char* name, void* tracked) {
    return new LoggingTracker(name, tracked, destroyed_);
  }

  std::string destroyed_;
};

TEST_F(DeleteWithObjects, ReleasesAndLogsEachByItsKind) {
  kit::align_requests();
  Scene scene(Environment{"DEBUG", "DB", ""});
  const Pool pool("", "AB");
  register_ptr(pool, QK_MEM_EXTERNAL, std::malloc(10), 10);
  register_ptr(pool, QK_MEM_OBJECT, tracker("object", at(0x5000)), 40);
  register_ptr(pool, QK_MEM_ARRAY, tracker("array", at(0x6000)), 50);
  scene.skip_log();
  scene.skip_trace();
  EXPECT_EQ(destroy(pool), 0);
  const std::string size = std::to_string(sizeof(qk_mem_handle));
  EXPECT_EQ(scene.log(), "   qk_mem_idel_handle:    3 [p1] F other.c:80000; H " + size +
                             " pool.c:7\n"
                             "   qk_mem_idel_handle:    3 [p2] F other.c:80000; X 10 app.c:12\n"
                             "   qk_mem_idel_handle:    3 [p3] E other.c:80000; W 40 app.c:12\n"
                             "   qk_mem_idel_handle:    3 [p4] K other.c:80000; J 1/50 app.c:12\n"
                             "   qk_mem_idel_handle:    3 [p5] E other.c:80000; T 16 app.c:12\n"
                             "   qk_mem_idel_handle:    3 [p6] E other.c:80000; T 16 app.c:12\n"
                             "   qk_mem_idel_handle:    3 [p7] F other.c:80000; P 16/48 pool.c:7\n"
                             "   qk_mem_idel_handle:    3 [p8] F other.c:80000; P 16/48 app.c:12\n"
                             "   qk_mem_idel_handle:    3 D other.c:80000; pool.c:7\n");
  EXPECT_EQ(scene.trace(), "3 F [p1] 1 " + size + " other.c 80000 -" + size +
                               "\n"
                               "3 F [p2] 1 10 other.c 80000 -10\n"
                               "3 E [p3] 1 40 other.c 80000 -40\n"
                               "3 K [p4] 1 50 other.c 80000 -50\n"
                               "3 E [p5] 1 16 other.c 80000 -16\n"
                               "3 E [p6] 1 16 other.c 80000 -16\n"
                               "3 F [p7] 16 48 other.c 80000 -768\n"
                               "3 F [p8] 16 48 other.c 80000 -768\n"
                               "3 D [p0] 0 0 other.c 80000 0\n");
  EXPECT_EQ(destroyed_, "object destroys its object\narray destroys its object\n");
}

TEST_F(DeleteWithObjects, DestroysThemInTheOrderOfArraysAndRecords) {
  Scene scene("");
  const Pool pool;
  register_ptr(pool, QK_MEM_OBJECT, tracker("third", at(0x5020)), 1);
  register_ptr(pool, QK_MEM_OBJECT, tracker("first", at(0x5100)), 1);
  register_ptr(pool, QK_MEM_ARRAY, tracker("second", at(0x5080)), 1);
  register_ptr(pool, QK_MEM_OBJECT, tracker("fourth", at(0x5030)), 1);
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(destroyed_,
            "first destroys its object\nsecond destroys its object\n"
            "third destroys its object\nfourth destroys its object\n");
}

TEST_F(DeleteWithObjects, SubtractsTheirBytesFromTheTag) {
  Scene scene("");
  const Pool other("", "AB");
  register_ptr(other, QK_MEM_EXTERNAL, at(0x5000), 7);
  const Pool pool("", "AB");
  register_ptr(pool, QK_MEM_OBJECT, tracker("object", at(0x5000)), 40);
  EXPECT_EQ(kit::tag_of("AB"), "2 for 47");
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(qk_mem_tag_size("AB"), 7);
}

TEST_F(DeleteWithObjects, DestroysAnObjectOnceAndBothItsTrackers) {
  kit::align_requests();
  Scene scene(Environment{"EXCEPTIONS=qk_mem_idel_handle", "DB", ""});
  const Pool pool;
  register_ptr(pool, QK_MEM_OBJECT, tracker("first", at(0x5000)), 40);
  register_ptr(pool, QK_MEM_OBJECT, tracker("second", at(0x5000)), 40);
  scene.skip_log();
  scene.skip_trace();
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(destroyed_, "first destroys its object\nsecond is destroyed\n");
  EXPECT_EQ(scene.log(), "");
  EXPECT_NE(scene.trace("E").find("3 E [p1] 1 40 other.c 80000 -40\n"
                                  "3 E [p1] 1 40 other.c 80000 -40\n"),
            std::string::npos)
      << "both records are shown";
}

TEST_F(DeleteWithObjects, DestroysATrackerOfTwoRecordsOnce) {
  Scene scene("");
  const Pool pool;
  LoggingTracker* const both = tracker("both", at(0x5000));
  register_ptr(pool, QK_MEM_OBJECT, both, 40);
  register_ptr(pool, QK_MEM_ARRAY, both, 40);
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(destroyed_, "both destroys its object\n");
}

TEST_F(DeleteWithObjects, DestroysEachOfManyOnce) {
  Scene scene("");
  const Pool pool;
  for (int i = 0; i < 2000; ++i) {
    void* const address = at(0x100000 + 16 * static_cast<std::uintptr_t>(i));
    register_ptr(pool, QK_MEM_OBJECT, tracker("a", address), 1);
    if (i % 10 == 0) register_ptr(pool, QK_MEM_OBJECT, tracker("b", address), 1);
  }
  EXPECT_EQ(destroy(pool), 0);
  std::size_t objects = 0;
  for (std::size_t i = 0; (i = destroyed_.find("destroys", i)) != std::string::npos; ++i) ++objects;
  EXPECT_EQ(objects, 2000U);
  std::size_t trackers = 0;
  for (const char c : destroyed_) trackers += c == '\n' ? 1 : 0;
  EXPECT_EQ(trackers, 2200U);
}

TEST_F(DeleteWithObjects, FreesMemoryOfTwoRecordsOnce) {
  Scene scene("");
  const Pool pool;
  void* const memory = qk_mem_imalloc(pool, 10, 16, "src/app.c", 12);
  register_ptr(pool, QK_MEM_EXTERNAL, memory, 10);
  register_ptr(pool, QK_MEM_OBJECT, tracker("object", memory), 10);
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(destroyed_, "object is destroyed\n") << "there is no memory left for an object";
}

/** Sets a baseline when it is destroyed, as another thread may do at that moment. */
class Baseliner : public qk::MemTracker {
 public:
  explicit Baseliner(void* tracked) { address = tracked; }
  ~Baseliner() override { EXPECT_EQ(qk_mem_baseline(""), 0); }

  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(Baseliner); }
  [[nodiscard]] bool same_type(const qk::MemTracker& /*other*/) const override { return false; }
};

TEST_F(DeleteWithObjects, DestroysEachOnceBesideABaseline) {
  Scene scene("EXCEPTIONS");
  const Pool pool;
  register_ptr(pool, QK_MEM_OBJECT, new Baseliner(at(0x5000)), 1);
  register_ptr(pool, QK_MEM_OBJECT, tracker("one", at(0x5080)), 1);
  register_ptr(pool, QK_MEM_OBJECT, tracker("two", at(0x5080)), 1);
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(destroyed_, "one destroys its object\ntwo is destroyed\n");
}

TEST_F(DeleteWithObjects, DestroysAnAddressWithManyRecordsOnce) {
  constexpr int kRecords = 20000;
  Scene scene("");
  const Pool pool;
  for (int i = 0; i < kRecords; ++i) {
    LoggingTracker* const both = tracker(i == 0 ? "first" : "other", at(0x5000));
    register_ptr(pool, QK_MEM_OBJECT, both, 1);
    register_ptr(pool, QK_MEM_OBJECT, both, 1);
  }
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(destroyed_.substr(0, 25), "first destroys its object");
  EXPECT_EQ(destroyed_.find("other destroys"), std::string::npos);
  EXPECT_EQ(destroyed_.size(), 26 + (kRecords - 1) * std::string("other is destroyed\n").size());
}

TEST_F(DeleteWithObjects, DestroysThemEvenIfPiecesAreNotRecorded) {
  Scene scene(Environment{"EXCEPTIONS", "DB", ""});
  const Pool pool("BLOCKMGMT", "AB");
  qk_mem_imalloc(pool, 10, 16, "src/app.c", 12);
  register_ptr(pool, QK_MEM_OBJECT, tracker("object", at(0x5000)), 40);
  scene.skip_trace();
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(scene.trace("Ef"),
            "3 E [p1] 1 40 other.c 80000 -40\n3 E [p2] 1 16 other.c 80000 -16\n");
  EXPECT_EQ(destroyed_, "object destroys its object\n");
}

/** Frees memory of a handle when it is destroyed, like an object that owns it. */
class Owner : public qk::MemTracker {
 public:
  Owner(int hid, void* tracked) : hid_(hid) { address = tracked; }
  ~Owner() override { qk_mem_ifree(hid_, owned, "src/owner.c", 3); }
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(Owner); }
  [[nodiscard]] bool same_type(const qk::MemTracker&) const override { return true; }

  void* owned = nullptr;

 private:
  int hid_;
};

TEST_F(DeleteWithObjects, LetsAnObjectFreeMemoryRecordedAfterIt) {
  for (const char* options : {"", "MULTITHREADED", "BLOCKMGMT BLOCKFREE"}) {
    kit::align_requests();
    Scene scene("EXCEPTIONS");
    const Pool pool(options);
    auto* const owner = new Owner(pool, at(0x5000));
    register_ptr(pool, QK_MEM_OBJECT, owner, 40);
    // Recorded in a later array than the object, or in a later slot.
    owner->owned = qk_mem_imalloc(pool, 10, 16, "src/app.c", 12);
    scene.skip_log();
    EXPECT_EQ(destroy(pool), 0);
    EXPECT_EQ(scene.log(), "") << options;
  }
}

TEST_F(DeleteWithObjects, LeavesDeregisteredObjectsAlone) {
  Scene scene("");
  const Pool pool;
  LoggingTracker* const own = tracker("object", at(0x5000));
  register_ptr(pool, QK_MEM_OBJECT, own, 40);
  qk_mem_ideregister(pool, QK_MEM_OBJECT, own, "src/app.c", 13);
  EXPECT_EQ(destroy(pool), 0);
  EXPECT_EQ(destroyed_, "object is destroyed\n");
}

/** Prints its destruction. */
class Printer : public qk::MemTracker {
 public:
  explicit Printer(void* tracked) { address = tracked; }
  ~Printer() override { std::puts(address == nullptr ? "ends" : "ends with its object"); }
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(Printer); }
  [[nodiscard]] bool same_type(const qk::MemTracker&) const override { return true; }
};

TEST_F(DeleteWithObjects, DestroysObjectsOfAutofreeHandlesAtExit) {
  Scene scene("");
  const auto ended = kit::run({}, [] {
    const Pool autofree("AUTOFREE");
    const Pool other;
    register_ptr(autofree, QK_MEM_OBJECT, new Printer(at(0x5000)), 40);
    register_ptr(other, QK_MEM_OBJECT, new Printer(at(0x5000)), 40);
  });
  EXPECT_EQ(ended.exit_code, 0);
  EXPECT_EQ(ended.out, "ends with its object\n");
}

}  // namespace
