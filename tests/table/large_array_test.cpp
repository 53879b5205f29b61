#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_array.h"
#include "table/pointer_table.h"
#include "tests/kit/array_check.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/placement.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"
#include "tests/kit/trace.h"

/** An array of 80 slots or more gets an index with the first search. */
namespace {

using kit::Scene;

constexpr int kBeforeLarge = 15;  // pointers that fill the 16 slots of an array

/** The array of the made-up addresses. Of the handle's own memory it holds its own record only. */
constexpr int kArray = 3;

/** Made-up addresses that all belong to one array. */
void* nth(int i) { return kit::at(0x100030 + static_cast<std::uintptr_t>(i) * 0x80); }

/** A handle that records made-up addresses. */
class LargeArray : public testing::Test {
 protected:
  LargeArray() {
    kit::align_requests();
    qk_mem_init();
    hid = qk_mem_inew_handle("", "AB", "src/app.c", 3);
    handle = Qk_mem_handles[hid - 1];
  }

  ~LargeArray() override {
    EXPECT_EQ(kit::check_array(handle->ptrs[kArray]), "");
    // No memory is at these addresses.
    for (int i = 0; i < recorded; ++i) forget(nth(i));
    qk_mem_idel_handle(hid, "src/app.c", 4);
  }

  void fill(int count) {
    while (recorded < count) record(nth(recorded++));
  }

  qk_mem_ptr* record(void* address) {
    return qk_mem_new_ptr(handle, address, 'M', "src/app.c", 12, &Qk_mem_debug[4]);
  }

  void forget(void* address) {
    if (qk_mem_ptr* found = qk_mem_get_ptr(handle, address)) qk_mem_free_ptr(handle, found);
  }

  /** The kinds of the handle's own memory, a letter for each record, in the order of arrays. */
  [[nodiscard]] std::string kinds_of_management() const {
    std::string kinds;
    for (const qk_mem_ptr_array& array : handle->ptrs) {
      for (int i = 0; i < array.capacity; ++i) {
        const unsigned char kind = array.ptrs[i].kind;
        if (kind == 'P' || kind == 'H' || kind == 'T') kinds += static_cast<char>(kind);
      }
    }
    return kinds;
  }

  const Scene scene{"DEBUG=qk_mem_idel_handle"};
  int hid;
  qk_mem_handle* handle;
  int recorded = 0;
};

TEST_F(LargeArray, IsRecordedAndAccountedForLikeASmallOne) {
  fill(kBeforeLarge);
  const std::string kinds = kinds_of_management();
  const std::uint64_t amount = handle->overhead_amount;
  const std::uint32_t qty = handle->overhead_qty;
  const std::uint32_t events = Qk_mem_seq;
  fill(kBeforeLarge + 1);
  const qk_mem_ptr& own = handle->ptrs[kArray].ptrs[0];
  EXPECT_EQ(kinds_of_management(), kinds);
  EXPECT_EQ(handle->overhead_amount, amount + 64 * 48);
  EXPECT_EQ(handle->overhead_qty, qty);
  EXPECT_EQ(Qk_mem_seq, events + 1) << "the growth; qk_mem_new_ptr() counts no event";
  EXPECT_EQ(own.kind, 'P');
  EXPECT_EQ(own.count, 80U);
  EXPECT_EQ(own.size, 48U);
  EXPECT_EQ(handle->qty, 16U);
}

TEST_F(LargeArray, StaysInOrderOverManyGrowths) {
  fill(1100);
  EXPECT_EQ(handle->ptrs[kArray].capacity, 1104);
  EXPECT_EQ(handle->qty, 1100U);
  for (int i = 0; i < 1100; ++i) {
    ASSERT_EQ(qk_mem_get_ptr(handle, nth(i)), handle->ptrs[kArray].ptrs + i + 1) << i;
  }
}

TEST_F(LargeArray, FindsEachAddressAndNoOther) {
  fill(3000);
  for (int i = 0; i < 3000; i += 7) forget(nth(i));
  for (int i = 0; i < 3000; ++i) {
    const qk_mem_ptr* found = qk_mem_get_ptr(handle, nth(i));
    if (i % 7 == 0) {
      EXPECT_EQ(found, nullptr) << i;
    } else {
      ASSERT_NE(found, nullptr) << i;
      EXPECT_EQ(found->address, nth(i));
    }
  }
  EXPECT_EQ(qk_mem_get_ptr(handle, nth(3000)), nullptr);
}

TEST_F(LargeArray, FindsAddressesThatAreFarApart) {
  fill(600);
  const auto far = [](int i) {
    return kit::at(0x100030 + (static_cast<std::uintptr_t>(i + 1) << 21));
  };
  for (int i = 0; i < 2000; ++i) record(far(i));
  for (int i = 0; i < 2000; ++i) {
    ASSERT_EQ(qk_mem_get_ptr(handle, far(i)), handle->ptrs[kArray].ptrs + 601 + i) << i;
  }
  EXPECT_EQ(kit::check_array(handle->ptrs[kArray]), "");
  for (int i = 1999; i >= 0; --i) forget(far(i));
}

TEST_F(LargeArray, FindsTheLowestSlotOfAnAddressThatFillsIt) {
  fill(600);
  constexpr int kTimes = 3000;
  void* const address = kit::at(0x7030);
  for (int i = 0; i < kTimes; ++i) record(address);
  const qk_mem_ptr* slots = handle->ptrs[kArray].ptrs;
  // Slots below all those of the address become free, and it takes them.
  for (int i = 100; i < 110; ++i) forget(nth(i));
  for (int i = 100; i < 110; ++i) record(address);
  for (int i = 0; i < kTimes + 10; ++i) {
    qk_mem_get_ptr(handle, nth(0));  // so that it isn't the slot used last
    const std::ptrdiff_t lowest = i < 10 ? 101 + i : 591 + i;
    ASSERT_EQ(qk_mem_get_ptr(handle, address) - slots, lowest) << i;
    forget(address);
  }
  EXPECT_EQ(qk_mem_get_ptr(handle, address), nullptr);
}

TEST_F(LargeArray, FindsTheLowerSlotOfTwoRecords) {
  fill(600);
  qk_mem_ptr* first = qk_mem_get_ptr(handle, nth(5));
  record(nth(5));
  record(nth(700));
  EXPECT_EQ(qk_mem_get_ptr(handle, nth(5)), first);
  forget(nth(5));
  forget(nth(5));
  forget(nth(700));
}

TEST_F(LargeArray, FillsTheLowestFreeSlotFirst) {
  fill(2000);
  qk_mem_ptr* slots = handle->ptrs[kArray].ptrs;
  const auto slot_of = [&](int i) { return qk_mem_get_ptr(handle, nth(i)) - slots; };
  const int freed[] = {900, 40, 1500, 1000, 41};
  std::vector<std::ptrdiff_t> expected;
  for (const int i : {40, 41, 900, 1000, 1500}) expected.push_back(slot_of(i));
  for (const int i : freed) forget(nth(i));
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(record(nth(3000 + static_cast<int>(i))) - slots, expected[i]);
  }
  for (int i = 3000; i < 3005; ++i) forget(nth(i));
}

TEST_F(LargeArray, LosesItsRecordsIfItCannotGrow) {
  fill(kBeforeLarge);
  kit::fail_request(1);
  EXPECT_EQ(record(nth(kBeforeLarge)), nullptr);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(qk_mem_get_ptr(handle, nth(0)), nullptr);
  EXPECT_EQ(record(nth(0)), nullptr) << "permanently";
  recorded = 0;
}

TEST_F(LargeArray, IsSearchedWithoutMemoryForAnIndex) {
  fill(70);
  kit::fail_all_requests();
  record(nth(5));
  for (int i = 0; i < 70; ++i) {
    ASSERT_EQ(qk_mem_get_ptr(handle, nth(i)), handle->ptrs[kArray].ptrs + i + 1) << i;
  }
  for (const int i : {60, 20, 40}) forget(nth(i));
  for (const int i : {20, 40, 60}) {
    ASSERT_EQ(record(nth(i)), handle->ptrs[kArray].ptrs + i + 1);
  }
  forget(nth(5));
  forget(nth(5));
  record(nth(5));
  kit::let_succeed();
  EXPECT_EQ(qk::mem::index_of(handle->ptrs[kArray]), nullptr);
}

TEST_F(LargeArray, GetsItsIndexWithALaterSearch) {
  fill(70);
  EXPECT_EQ(qk::mem::index_of(handle->ptrs[kArray]), nullptr);
  kit::fail_request(1);
  EXPECT_EQ(qk_mem_get_ptr(handle, nth(1)), handle->ptrs[kArray].ptrs + 2);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(qk::mem::index_of(handle->ptrs[kArray]), nullptr);
  EXPECT_EQ(qk_mem_get_ptr(handle, nth(0)), handle->ptrs[kArray].ptrs + 1);
  EXPECT_NE(qk::mem::index_of(handle->ptrs[kArray]), nullptr);
  EXPECT_EQ(kit::check_array(handle->ptrs[kArray]), "");
}

TEST_F(LargeArray, NeedsNoIndexToBeFilled) {
  fill(1000);
  for (int i = 1000; i < 1500; ++i) {
    record(nth(i));
    forget(nth(i));
  }
  EXPECT_EQ(qk::mem::index_of(handle->ptrs[kArray]), nullptr);
}

TEST_F(LargeArray, LosesAnIndexThatIsTooSmall) {
  fill(79);  // 80 slots
  qk_mem_get_ptr(handle, nth(0));
  ASSERT_NE(qk::mem::index_of(handle->ptrs[kArray]), nullptr) << "with room for 112";
  for (const int i : {70, 3}) forget(nth(i));
  for (const int i : {3, 70}) record(nth(i));
  fill(80);
  EXPECT_EQ(qk::mem::index_of(handle->ptrs[kArray]), nullptr);
  EXPECT_EQ(kit::check_array(handle->ptrs[kArray]), "");
  for (int i = 0; i < 80; ++i) {
    ASSERT_EQ(qk_mem_get_ptr(handle, nth(i)), handle->ptrs[kArray].ptrs + i + 1) << i;
  }
  EXPECT_NE(qk::mem::index_of(handle->ptrs[kArray]), nullptr);
}

TEST_F(LargeArray, KeepsTheErrorNumberWithoutMemoryForAnIndex) {
  fill(70);
  kit::fail_request(1);
  errno = 0;
  qk_mem_get_ptr(handle, nth(0));
  EXPECT_EQ(errno, 0);
  EXPECT_TRUE(kit::has_failed());
}

TEST_F(LargeArray, StaysInOrderOverRandomChanges) {
  std::mt19937 random(20261122);
  std::vector<int> used(500);  // how often each address is recorded
  for (int round = 0; round < 20; ++round) {
    for (int i = 0; i < 1000; ++i) {
      const std::size_t which = random() % used.size();
      void* const address = nth(static_cast<int>(which));
      if (random() % 5 < (round < 10 ? 3 : 2)) {
        record(address);
        ++used[which];
      } else if (used[which] != 0) {
        forget(address);
        --used[which];
      }
    }
    ASSERT_EQ(kit::check_array(handle->ptrs[kArray]), "");
  }
  EXPECT_GE(handle->ptrs[kArray].capacity, 528);
  for (std::size_t i = 0; i < used.size(); ++i) {
    for (; used[i] != 0; --used[i]) forget(nth(static_cast<int>(i)));
  }
}

/** The number of a handle's rows of each letter, in the order of letters. */
std::string letters_of(const kit::Trace& trace, int hid) {
  std::map<char, int> counts;
  for (const qk::mem::TraceRow& row : trace.rows) {
    if (row.handle == hid) ++counts[static_cast<char>(row.type)];
  }
  std::string text;
  for (const auto& [letter, count] : counts) text += letter + std::to_string(count) + " ";
  return text;
}

TEST(LargeArrayTraced, HasRowsOfHandlePointersAndGrowthsOnly) {
  const Scene scene(kit::Environment{"TRACE", "DB FLUSH", ""});
  kit::align_requests();  // so that all is in one array
  const kit::Pool pool;
  std::vector<void*> memory;
  for (int i = 0; i < 1200; ++i) memory.push_back(qk_mem_imalloc(pool, 8, 16, "src/app.c", 5));
  EXPECT_EQ(letters_of(kit::Trace(kit::contents("qkmem.tdf")), pool), "H1 M1200 N1 P20 ");
  EXPECT_EQ(kit::overhead_of(pool), "2 for " + std::to_string(sizeof(qk_mem_handle) + 1232 * 48));
  for (void* piece : memory) qk_mem_ifree(pool, piece, "src/app.c", 6);
  qk_mem_idel_handle(pool, "src/app.c", 7);
  EXPECT_EQ(letters_of(kit::Trace(kit::contents("qkmem.tdf")), pool), "D1 F1202 H1 M1200 N1 P20 ");
}

}  // namespace
