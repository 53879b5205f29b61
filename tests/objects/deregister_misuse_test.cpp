#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <typeinfo>

#include "accounting/kept_calls.h"
#include "core/switches.h"
#include "table/pointer_table.h"
#include "tests/kit/ledger.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::Environment;
using kit::Ledger;
using kit::LoggingTracker;
using kit::Pool;
using kit::Scene;
using std::string_literals::operator""s;

constexpr char kNull[] =
    "   qk_mem_ideregister: WARNING: deregister of NULL pointer at other.c:80000\n";
constexpr char kNotFound[] =
    "   qk_mem_ideregister: WARNING:   3 [p1] ptr not found at other.c:80000\n";
constexpr char kMismatched[] =
    "   qk_mem_ideregister: WARNING: deregister of mismatched type at other.c:80000 (allocated at app.c:14464)\n";

/** Registers something at app.c:80000. A record keeps 14464 as the line. */
void register_ptr(int hid, int type, void* ptr, std::size_t size) {
  qk_mem_iregister(hid, type, ptr, nullptr, size, "src/app.c", 80000);
}

/** Deregisters something at other.c:80000. */
void deregister_ptr(int hid, int type, void* ptr) {
  qk_mem_ideregister(hid, type, ptr, "lib/other.c", 80000);
}

class DeregisterMisuse : public ::testing::Test {
 protected:
  /** A tracker of 0x5000, owned by the handle that it is registered on. */
  LoggingTracker* tracker(const std::type_info& type = typeid(int)) {
    return new LoggingTracker("tracker", at(0x5000), destroyed_, type);
  }

  /** Registers 0x5000. */
  void register_as(int hid, int type) {
    register_ptr(hid, type, type == QK_MEM_EXTERNAL ? at(0x5000) : tracker(), 40);
  }

  /** The pointer to pass for a deregistration of 0x5000. */
  void* named_as(int type) { return type == QK_MEM_EXTERNAL ? at(0x5000) : &same_; }

  std::string destroyed_;
  LoggingTracker same_{"named", at(0x5000), destroyed_};
  LoggingTracker different_{"named", at(0x5000), destroyed_, typeid(double)};
  LoggingTracker of_nothing_{"named", nullptr, destroyed_};
};

TEST_F(DeregisterMisuse, WarnsOfNull) {
  Ledger ledger("EXCEPTIONS");
  const struct {
    int type;
    void* ptr;
  } rows[] = {{QK_MEM_EXTERNAL, nullptr},
              {QK_MEM_OBJECT, &of_nothing_},
              {QK_MEM_OBJECT, nullptr},
              {QK_MEM_ARRAY, &of_nothing_}};
  for (const auto& row : rows) {
    ledger.skip_all();
    deregister_ptr(ledger.pool, row.type, row.ptr);
    EXPECT_EQ(ledger.log(), kNull);
    EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
  }
}

TEST_F(DeregisterMisuse, WarnsOfAnUnknownPointerTwice) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.log(), std::string(kNotFound) + kNotFound);
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST_F(DeregisterMisuse, KeepsTheTrackerThatNamesAnUnknownObject) {
  Ledger ledger("EXCEPTIONS");
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &same_);
  EXPECT_EQ(ledger.log(), std::string(kNotFound) + kNotFound);
  EXPECT_EQ(same_.address, at(0x5000));
  EXPECT_EQ(destroyed_, "");
}

TEST_F(DeregisterMisuse, WarnsOfAnUnknownPointerOnceIfSwitchedOff) {
  Ledger ledger("EXCEPTIONS TRACE=not,qk_ideregister");
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.log(), kNotFound);
}

TEST_F(DeregisterMisuse, WarnsOfAPointerOfAnotherHandle) {
  Ledger ledger("EXCEPTIONS");
  const Pool other;
  register_ptr(other, QK_MEM_EXTERNAL, at(0x5000), 100);
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.log(), std::string(kNotFound) + kNotFound);
  EXPECT_EQ(kit::data_of(other), "1 for 100");
}

TEST_F(DeregisterMisuse, WarnsOfAMismatchedKind) {
  const struct {
    int registered;
    int deregistered;
    const char* log;
  } kRows[] = {
      {QK_MEM_EXTERNAL, QK_MEM_EXTERNAL, ""},
      {QK_MEM_EXTERNAL, QK_MEM_OBJECT, kMismatched},
      {QK_MEM_EXTERNAL, QK_MEM_ARRAY, kMismatched},
      {QK_MEM_OBJECT, QK_MEM_EXTERNAL, kMismatched},
      {QK_MEM_OBJECT, QK_MEM_OBJECT, ""},
      {QK_MEM_OBJECT, QK_MEM_ARRAY, kMismatched},
      {QK_MEM_ARRAY, QK_MEM_EXTERNAL, kMismatched},
      {QK_MEM_ARRAY, QK_MEM_OBJECT, kMismatched},
      {QK_MEM_ARRAY, QK_MEM_ARRAY, ""},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : kRows) {
    register_as(ledger.pool, row.registered);
    ledger.skip_all();
    deregister_ptr(ledger.pool, row.deregistered, named_as(row.deregistered));
    EXPECT_EQ(ledger.log(), row.log) << row.registered << " " << row.deregistered;
    EXPECT_EQ(ledger.record(at(0x5000)), "none") << "it is removed nevertheless";
    EXPECT_EQ(qk_mem_isize(ledger.pool, "app.c", 1), 0U);
  }
}

TEST_F(DeregisterMisuse, ShowsTheRequestedTypeAndTheRecordedKind) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker(), 40);
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &same_);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_ideregister: WARNING: deregister of mismatched type at other.c:80000 (allocated at app.c:14464)\n"
      "   qk_mem_ideregister:          3 [p1] \x01 other.c:80000; J 1/40 app.c:14464\n"
      "   qk_mem_tracker:   3 [p2] E other.c:80000; T 16 app.c:14464\n");
  EXPECT_EQ(ledger.trace(),
            "3 \x01 [p1] 1 40 other.c 80000 -40\n"
            "3 E [p2] 1 16 other.c 80000 -16\n");
  EXPECT_EQ(destroyed_, "tracker is destroyed\n");
}

TEST_F(DeregisterMisuse, KeepsTheTrackersRecordIfTakenAsMemory) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  LoggingTracker* const own = tracker();
  register_ptr(ledger.pool, QK_MEM_OBJECT, own, 40);
  ledger.skip_all();
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_ideregister: WARNING: deregister of mismatched type at other.c:80000 (allocated at app.c:14464)\n"
      "   qk_mem_ideregister:          3 [p1] \0 other.c:80000; W 40 app.c:14464\n"s);
  EXPECT_EQ(ledger.trace(), "3 \0 [p1] 1 40 other.c 80000 -40\n"s);
  EXPECT_EQ(destroyed_, "tracker is destroyed\n");
  EXPECT_EQ(ledger.record(own), "T 1/16 app.c:14464 event 2");
}

TEST_F(DeregisterMisuse, NamesBothTypesOfMismatchedObjects) {
  Ledger ledger("EXCEPTIONS");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker(), 40);
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &different_);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_ideregister: WARNING: deregister of object with invalid typename 'd' at other.c:80000 (allocated as 'i' at app.c:14464)\n");
  EXPECT_EQ(ledger.record(at(0x5000)), "none");
  EXPECT_EQ(destroyed_, "tracker is destroyed\n");
}

TEST_F(DeregisterMisuse, NamesBothTypesOfMismatchedArrays) {
  Ledger ledger("EXCEPTIONS");
  register_ptr(ledger.pool, QK_MEM_ARRAY, tracker(typeid(std::type_info)), 40);
  deregister_ptr(ledger.pool, QK_MEM_ARRAY, &different_);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_ideregister: WARNING: deregister of array with different typename 'd' at other.c:80000 (allocated as 'St9type_info' at app.c:14464)\n");
}

TEST_F(DeregisterMisuse, WarnsOfMismatchesInBothKindAndType) {
  const struct {
    int registered;
    int deregistered;
    const char* second;
  } kRows[] = {
      {QK_MEM_ARRAY, QK_MEM_OBJECT,
       "   qk_mem_ideregister: WARNING: deregister of object with invalid typename 'd' at other.c:80000 (allocated as 'i' at app.c:14464)\n"},
      {QK_MEM_OBJECT, QK_MEM_ARRAY,
       "   qk_mem_ideregister: WARNING: deregister of array with different typename 'd' at other.c:80000 (allocated as 'i' at app.c:14464)\n"},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : kRows) {
    register_ptr(ledger.pool, row.registered, tracker(), 40);
    ledger.skip_all();
    deregister_ptr(ledger.pool, row.deregistered, &different_);
    EXPECT_EQ(ledger.log(), std::string(kMismatched) + row.second);
  }
}

TEST_F(DeregisterMisuse, ComparesNoTypesIfTheRecordHasNoTracker) {
  Ledger ledger("EXCEPTIONS");
  register_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000), 40);
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &different_);
  EXPECT_EQ(ledger.log(), kMismatched);
  EXPECT_EQ(destroyed_, "") << "the tracker that names it stays the caller's";
}

TEST_F(DeregisterMisuse, ComparesNoTypesIfNoTrackerIsPassed) {
  Ledger ledger("EXCEPTIONS");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker(typeid(double)), 40);
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, at(0x5000));
  EXPECT_EQ(ledger.log(), kMismatched);
}

TEST_F(DeregisterMisuse, HasNoWarningForVoid) {
  Ledger ledger("");
  register_ptr(ledger.pool, QK_MEM_OBJECT, tracker(typeid(void)), 40);
  LoggingTracker of_void("named", at(0x5000), destroyed_, typeid(void));
  ledger.configure("EXCEPTIONS");
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &of_void);
  EXPECT_EQ(ledger.log(), "");
}

TEST_F(DeregisterMisuse, DoesNotIncludeAllocatedMemory) {
  Ledger ledger("EXCEPTIONS");
  void* const memory = qk_mem_imalloc(ledger.pool, 10, 16, "src/app.c", 12);
  LoggingTracker of_memory("named", memory, destroyed_);
  deregister_ptr(ledger.pool, QK_MEM_ARRAY, &of_memory);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 2");
  std::free(memory);
}

TEST(DeregisterOfAPiece, SubtractsItsBytesFromTheSums) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, "BLOCKMGMT BLOCKFREE BLOCKSIZE=64");
  void* piece = qk_mem_imalloc(ledger.pool, 10, 1, "src/app.c", 12);
  EXPECT_EQ(ledger.sums(), "handle 2 for 96, tag 2 for 96, events 1");
  deregister_ptr(ledger.pool, QK_MEM_EXTERNAL, piece);
  EXPECT_EQ(ledger.sums(), "handle 1 for 86, tag 1 for 86, events 2");
}

TEST_F(DeregisterMisuse, WarnsIfOnlyTheTrackerHasNoRecord) {
  Ledger ledger("EXCEPTIONS");
  LoggingTracker* const own = tracker();
  register_ptr(ledger.pool, QK_MEM_OBJECT, own, 40);
  qk_mem_free_ptr(&ledger.pool.record(), qk_mem_get_ptr(&ledger.pool.record(), own));
  deregister_ptr(ledger.pool, QK_MEM_OBJECT, &same_);
  EXPECT_EQ(ledger.log(), "   qk_mem_tracker: WARNING:   3 [p1] ptr not found at other.c:80000\n");
  EXPECT_EQ(ledger.record(at(0x5000)), "none");
  EXPECT_EQ(destroyed_, "tracker is destroyed\n");
}

TEST_F(DeregisterMisuse, IsSilentUnderOtherSwitches) {
  for (const char* debug :
       {"SUMMARY TRACE", "EXCEPTIONS='not qk_iregister,qk_ideregister'", "DEBUG=qk_iregister"}) {
    Ledger ledger("EXCEPTIONS");
    const Pool pool;
    register_ptr(pool, QK_MEM_OBJECT, tracker(), 40);
    ledger.configure(debug);
    deregister_ptr(pool, QK_MEM_ARRAY, &different_);
    deregister_ptr(pool, QK_MEM_ARRAY, &different_);
    EXPECT_EQ(ledger.log("qk_mem_ideregister"), "") << debug;
  }
}

TEST(DeregisterWithAnUnknownType, WarnsOfAMismatchedKind) {
  Scene scene("EXCEPTIONS");
  const Pool pool;
  char memory[8];
  qk_mem_iregister(pool, 0, memory, nullptr, sizeof memory, "src/app.c", 12);
  qk_mem_ideregister(pool, 7, memory, "src/app.c", 34);
  EXPECT_EQ(
      scene.log("qk_mem_ideregister"),
      "   qk_mem_ideregister: WARNING: deregister of mismatched type at app.c:34 (allocated at app.c:12)\n");
}

}  // namespace
