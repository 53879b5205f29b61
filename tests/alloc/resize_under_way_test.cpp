// What other calls on a handle see and do while the allocator works on a realloc.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "table/pointer_array.h"
#include "tests/kit/array_check.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::Environment;
using kit::Ledger;

/** What the allocator's action, a plain function, has to know. */
int hid = 0;
void* memory = nullptr;
int others = 0;  // that were recorded
std::string seen;
int ended = -1;  // the status of a child

/** A made-up address of the same pointer array. */
void* other(int number) {
  const auto distance = (std::uintptr_t{1} << 40) + 128 * static_cast<std::uintptr_t>(number);
  return kit::at(reinterpret_cast<std::uintptr_t>(memory) + distance);
}

void record_other() {
  qk_mem_iregister(hid, QK_MEM_EXTERNAL, other(++others), nullptr, 8, "other.c", 2);
}

bool has_all_others() {
  for (int i = 1; i <= others; ++i) {
    if (qk_mem_is_recorded(hid, other(i), "other.c", 3) == 0) return false;
  }
  return true;
}

/** There is no memory at their addresses, which a deletion would free. */
void forget_others() {
  for (; others > 0; --others) {
    qk_mem_ideregister(hid, QK_MEM_EXTERNAL, other(others), "other.c", 4);
  }
}

qk_mem_ptr_array& array() { return qk::mem::array_of(kit::handle_of(hid), memory); }

/** The slot of an address; 0 if it has none. */
int slot_of(const void* address) {
  for (int slot = 1; slot < array().capacity; ++slot) {
    if (array().ptrs[slot].address == address) return slot;
  }
  return 0;
}

/** Allocates the memory and fills its array, which has `capacity` slots then. */
void fill_array(std::int32_t capacity) {
  memory = qk_mem_imalloc(hid, 16, 16, "app.c", 1);
  while (array().used < capacity) record_other();
}

void* resize(std::size_t size) { return qk_mem_irealloc(hid, memory, size, 16, "app.c", 5); }

struct Way {
  const char* name;
  const char* debug;
  const char* options;
};

void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

/** Memory whose pointer array is full. */
class ResizeUnderWay : public testing::TestWithParam<Way> {
 protected:
  ResizeUnderWay() : ledger_(Environment{GetParam().debug, "", ""}, GetParam().options) {
    hid = ledger_.pool;
    kit::align_requests();
    fill_array(16);
  }

  ~ResizeUnderWay() override {
    EXPECT_EQ(kit::check_all_arrays(), "");
    forget_others();
  }

  Ledger ledger_;
};

constexpr Way kPlain = {"Plain", "", ""};
constexpr Way kChecked = {"Checked", "EXCEPTIONS SUMMARY", ""};
constexpr Way kShared = {"Shared", "", "MULTITHREADED"};
constexpr Way kCheckedShared = {"CheckedShared", "EXCEPTIONS SUMMARY", "MULTITHREADED"};
constexpr Way kPieces = {"Pieces", "", "BLOCKMGMT BLOCKFREE BLOCKSIZE=64"};
constexpr Way kCheckedPieces = {"CheckedPieces", "EXCEPTIONS SUMMARY",
                                "BLOCKMGMT BLOCKFREE BLOCKSIZE=64"};

INSTANTIATE_TEST_SUITE_P(Of, ResizeUnderWay,
                         testing::Values(kPlain, kChecked, kShared, kCheckedShared, kPieces,
                                         kCheckedPieces),
                         [](const auto& way) { return way.param.name; });

class OrdinaryResizeUnderWay : public ResizeUnderWay {};
INSTANTIATE_TEST_SUITE_P(Of, OrdinaryResizeUnderWay,
                         testing::Values(kPlain, kChecked, kShared, kCheckedShared),
                         [](const auto& way) { return way.param.name; });

class SharedResizeUnderWay : public ResizeUnderWay {};
INSTANTIATE_TEST_SUITE_P(Of, SharedResizeUnderWay, testing::Values(kShared, kCheckedShared),
                         [](const auto& way) { return way.param.name; });

TEST_P(ResizeUnderWay, KeepsItsRecordIfItFailsAfterAnotherCame) {
  const std::string before = ledger_.record(memory);
  kit::fail_request(1);
  kit::during_next_request(record_other);
  EXPECT_EQ(resize(4096), nullptr);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(ledger_.record(memory), before);
  EXPECT_TRUE(has_all_others());
}

TEST_P(ResizeUnderWay, KeepsItsRecordIfNobodyHasMemory) {
  const std::string before = ledger_.record(memory);
  kit::fail_all_requests();
  kit::during_next_request([] {
    record_other();
    seen = std::to_string(qk_mem_error());
  });
  EXPECT_EQ(resize(4096), nullptr);
  kit::let_succeed();
  EXPECT_EQ(seen, "5012");
  EXPECT_EQ(qk_mem_is_recorded(hid, other(others), "other.c", 3), 0);
  EXPECT_EQ(ledger_.record(memory), before);
  --others;
  EXPECT_TRUE(has_all_others());
  record_other();
  EXPECT_TRUE(has_all_others());
}

TEST_P(ResizeUnderWay, LeavesItsPlaceWhenItSucceeds) {
  void* const resized = resize(8);
  ASSERT_NE(resized, nullptr);
  EXPECT_EQ(kit::check_all_arrays(), "");
  qk_mem_ifree(hid, resized, "app.c", 6);
  record_other();
  EXPECT_TRUE(has_all_others());
  EXPECT_EQ(array().capacity, 16);
}

TEST_P(ResizeUnderWay, LeavesItsPlaceWhenItSucceedsAfterAnotherCame) {
  kit::during_next_request(record_other);
  void* const resized = resize(4096);
  ASSERT_NE(resized, nullptr);
  EXPECT_EQ(kit::check_all_arrays(), "");
  EXPECT_TRUE(has_all_others());
  qk_mem_ifree(hid, resized, "app.c", 6);
}

TEST_P(OrdinaryResizeUnderWay, LeavesItsPlaceWhenItFreesTheMemory) {
  EXPECT_EQ(resize(0), nullptr);
  record_other();
  EXPECT_TRUE(has_all_others());
  EXPECT_EQ(array().capacity, 16);
}

TEST_P(ResizeUnderWay, IsFoundByNoSearch) {
  kit::during_next_request(
      [] { seen = std::to_string(qk_mem_is_recorded(hid, memory, "app.c", 3)); });
  void* const resized = resize(4096);
  EXPECT_EQ(seen, "0");
  EXPECT_EQ(qk_mem_is_recorded(hid, resized, "app.c", 3), 1);
  qk_mem_ifree(hid, resized, "app.c", 6);
}

TEST_P(OrdinaryResizeUnderWay, LeavesAnotherRecordOfItsAddressFound) {
  const auto own_slot = slot_of(memory);
  const auto other_slot = slot_of(other(3));
  qk_mem_ideregister(hid, QK_MEM_EXTERNAL, other(3), "other.c", 4);
  qk_mem_iregister(hid, QK_MEM_EXTERNAL, memory, nullptr, 8, "other.c", 2);
  ASSERT_EQ(qk_mem_is_recorded(hid, other(4), "app.c", 3), 1);  // the slot used last
  kit::during_next_request(
      [] { seen = std::to_string(qk_mem_is_recorded(hid, memory, "app.c", 3)); });
  void* const resized = resize(4096);
  EXPECT_EQ(seen, "1");
  EXPECT_EQ(slot_of(resized), own_slot);
  EXPECT_EQ(slot_of(memory), other_slot);
  qk_mem_ideregister(hid, QK_MEM_EXTERNAL, memory, "other.c", 4);
  qk_mem_ifree(hid, resized, "app.c", 6);
}

TEST_P(OrdinaryResizeUnderWay, IsInNoReport) {
  kit::during_next_request([] { seen = kit::dump("HANDLE=3", QK_MEM_DUMP_POINTERS); });
  qk_mem_ifree(hid, resize(4096), "app.c", 6);
  EXPECT_EQ(seen, kit::dump("HANDLE=3", QK_MEM_DUMP_POINTERS));
}

TEST_P(OrdinaryResizeUnderWay, TakesTheLowestFreeSlotWhenItSucceeds) {
  qk_mem_ideregister(hid, QK_MEM_EXTERNAL, other(9), "other.c", 4);
  void* const resized_once = qk_mem_imalloc(hid, 16, 16, "app.c", 7);
  void* const resized_again = qk_mem_irealloc(hid, resized_once, 8, 16, "app.c", 8);
  const int high = slot_of(resized_again);
  const int low = slot_of(other(5));
  ASSERT_GT(high, low);
  qk_mem_ideregister(hid, QK_MEM_EXTERNAL, other(5), "other.c", 4);
  void* const last = qk_mem_irealloc(hid, resized_again, 12, 16, "app.c", 8);
  EXPECT_EQ(slot_of(last), low);
  EXPECT_EQ(array().used, 15);
  record_other();
  EXPECT_EQ(slot_of(other(others)), high);
}

TEST_P(OrdinaryResizeUnderWay, LeavesItsPlaceWhenItSucceedsInALargeArray) {
  std::vector<void*> pieces;
  while (array().used < 592) pieces.push_back(qk_mem_imalloc(hid, 16, 16, "app.c", 7));
  for (const std::size_t size : {8, 200, 100}) {
    for (void*& piece : pieces) piece = qk_mem_irealloc(hid, piece, size, 16, "app.c", 8);
    ASSERT_EQ(kit::check_array(array()), "") << size;
    ASSERT_EQ(array().used, 592) << size;
  }
  EXPECT_EQ(array().capacity, 592);
}

TEST_P(ResizeUnderWay, KeepsItsRecordIfItFailsInALargeArray) {
  while (array().used < 592) record_other();
  const std::string before = ledger_.record(memory);
  kit::fail_request(1);
  kit::during_next_request([] {
    seen = kit::check_array(array());
    for (int i = 0; i < 1000; ++i) record_other();
    seen += kit::check_array(array());
  });
  EXPECT_EQ(resize(4096), nullptr);
  EXPECT_EQ(seen, "");
  EXPECT_EQ(ledger_.record(memory), before);
  EXPECT_TRUE(has_all_others());
}

TEST_P(ResizeUnderWay, IsLeftOutWhenAForkedChildDropsAllRecords) {
  forget_others();
  kit::handle_of(hid).registered = 0;  // a clear then takes the shortest way
  kit::during_next_request([] {
    if (fork() != 0) {
      wait(&ended);
      return;
    }
    const std::string data = kit::data_of(hid);
    const bool cleared = qk_mem_iclear_handle(hid, "child.c", 1) == 0;
    if (!cleared) qk_mem_idel_handle(hid, "child.c", 2);
    _exit(cleared && kit::data_of(hid) != data ? 1 : 0);
  });
  EXPECT_NE(resize(4096), nullptr);
  EXPECT_EQ(ended, 0);
}

TEST_P(SharedResizeUnderWay, KeepsItsRecordBesideAnotherThread) {
  const std::string before = ledger_.record(memory);
  kit::fail_request(1);
  kit::during_next_request([] { std::thread(record_other).join(); });
  EXPECT_EQ(resize(4096), nullptr);
  EXPECT_EQ(ledger_.record(memory), before);
  EXPECT_TRUE(has_all_others());
}

}  // namespace
