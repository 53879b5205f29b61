#include "table/pointer_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::StandaloneHandle;

qk_mem_debug silent = {};

qk_mem_ptr* record(StandaloneHandle& handle, std::uintptr_t address, char kind = 'M') {
  return qk_mem_new_ptr(handle, at(address), static_cast<unsigned char>(kind), "src/app.c", 5,
                        &silent);
}

/** The index of a slot in the array of its address, which is array 0 in most tests. */
std::ptrdiff_t index_of(StandaloneHandle& handle, const qk_mem_ptr* slot, int array = 0) {
  return slot == nullptr ? -1 : slot - handle->ptrs[array].ptrs;
}

bool is_clear(const qk_mem_ptr& slot) {
  return slot.address == nullptr && slot.tracker == nullptr && slot.file == nullptr &&
         slot.count == 0 && slot.size == 0 && slot.seq == 0 && slot.line == 0 && slot.kind == 0 &&
         slot.baselined == 0;
}

TEST(NewPtr, CreatesAnArrayOf16SlotsThatRecordsItself) {
  StandaloneHandle handle;
  Qk_mem_seq = 41;
  record(handle, 0x1000);
  EXPECT_EQ(handle.array(), "16 slots, 2 used");
  const qk_mem_ptr& own = handle->ptrs[0].ptrs[0];
  EXPECT_EQ(own.address, handle->ptrs[0].ptrs);
  EXPECT_EQ(own.kind, 'P');
  EXPECT_EQ(own.count, 16U);
  EXPECT_EQ(own.size, 48U);
  EXPECT_STREQ(own.file, "app.c");
  EXPECT_EQ(own.line, 5);
  EXPECT_EQ(own.seq, 42U);
  EXPECT_EQ(own.tracker, nullptr);
}

TEST(NewPtr, StoresAddressAndKindAndLeavesTheRestToTheCaller) {
  StandaloneHandle handle;
  qk_mem_ptr* slot = record(handle, 0x1000, 'S');
  ASSERT_EQ(index_of(handle, slot), 1);
  EXPECT_EQ(handle->ptrs[0].last, 1);
  EXPECT_EQ(slot->address, at(0x1000));
  EXPECT_EQ(slot->kind, 'S');
  EXPECT_EQ(slot->file, nullptr);
  EXPECT_EQ(slot->count, 0U);
  EXPECT_EQ(slot->size, 0U);
  EXPECT_EQ(slot->seq, 0U);
  EXPECT_EQ(slot->line, 0);
}

TEST(NewPtr, CountsAnEventForTheArrayOnly) {
  StandaloneHandle handle;
  Qk_mem_seq = 41;
  record(handle, 0x1000);
  EXPECT_EQ(Qk_mem_seq, 42U);
  record(handle, 0x2000);
  EXPECT_EQ(Qk_mem_seq, 42U);
}

TEST(NewPtr, AccountsForTheArrayAndCountsThePointer) {
  StandaloneHandle handle;
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 0 for 0, tag 0 for 0");
  record(handle, 0x1000);
  EXPECT_EQ(handle.sums(), "data 1 for 0, overhead 1 for 768, tag 1 for 0");
  record(handle, 0x2000);
  EXPECT_EQ(handle.sums(), "data 2 for 0, overhead 1 for 768, tag 2 for 0");
}

TEST(NewPtr, CountsBookkeepingAsOverheadAndEveryOtherKindAsData) {
  for (const char kind : {'H', 'T'}) {
    StandaloneHandle handle;
    record(handle, 0x1000, kind);
    EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 2 for 768, tag 0 for 0") << kind;
  }
  for (const char kind : {'M', 'C', 'R', 'S', 'm', 'c', 'r', 's', 'X', 'W', 'J', 'B'}) {
    StandaloneHandle handle;
    record(handle, 0x1000, kind);
    EXPECT_EQ(handle.sums(), "data 1 for 0, overhead 1 for 768, tag 1 for 0") << kind;
  }
}

TEST(NewPtr, ChoosesTheArrayByBits4To6OfTheAddress) {
  struct {
    std::uintptr_t address;
    int array;
  } constexpr kRows[] = {
      {0x1000, 0}, {0x100f, 0}, {0x1010, 1}, {0x101f, 1},     {0x1020, 2},
      {0x1030, 3}, {0x1040, 4}, {0x1050, 5}, {0x1060, 6},     {0x1070, 7},
      {0x1080, 0}, {0x1090, 1}, {0x10f8, 7}, {0x7fffffff, 7}, {0x7fff00000030, 3},
  };
  for (const auto& row : kRows) {
    StandaloneHandle handle;
    record(handle, row.address);
    for (int array = 0; array < 8; ++array) {
      EXPECT_EQ(handle.array(array),
                array == row.array ? "16 slots, 2 used" : "0 slots, 0 used, no memory")
          << std::hex << row.address << " in " << array;
    }
  }
}

TEST(NewPtr, LetsAddressesThatDifferInOtherBitsShareAnArray) {
  StandaloneHandle handle;
  record(handle, 0x1000);
  record(handle, 0x1008);
  record(handle, 0x1080);
  record(handle, 0x7f0000000000);
  EXPECT_EQ(handle.array(), "16 slots, 5 used");
}

TEST(NewPtr, TakesTheFirstFreeSlot) {
  StandaloneHandle handle;
  for (std::uintptr_t i = 1; i <= 6; ++i) record(handle, i * 0x100);
  for (const std::uintptr_t freed : {5U, 2U, 4U}) {
    qk_mem_free_ptr(handle, qk_mem_get_ptr(handle, at(freed * 0x100)));
  }
  for (const std::ptrdiff_t expected : {2, 4, 5, 7}) {
    EXPECT_EQ(index_of(handle, record(handle, 0x9000)), expected);
  }
}

TEST(NewPtr, RecordsAnAddressAgainInAnotherSlot) {
  StandaloneHandle handle;
  record(handle, 0x1000);
  EXPECT_EQ(index_of(handle, record(handle, 0x1000)), 2);
  EXPECT_EQ(handle.sums(), "data 2 for 0, overhead 1 for 768, tag 2 for 0");
}

TEST(GetPtr, FindsAnAddressInAnySlot) {
  StandaloneHandle handle;
  for (std::uintptr_t i = 1; i <= 100; ++i) record(handle, i * 0x80);
  for (const std::uintptr_t i : {1U, 50U, 100U, 99U, 1U}) {
    EXPECT_EQ(index_of(handle, qk_mem_get_ptr(handle, at(i * 0x80))), i);
    EXPECT_EQ(handle->ptrs[0].last, static_cast<std::int32_t>(i));
  }
}

TEST(GetPtr, FindsNothingForAnUnknownAddress) {
  StandaloneHandle handle;
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1000)), nullptr);
  record(handle, 0x1000);
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1001)), nullptr);
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1010)), nullptr);
  EXPECT_EQ(handle->ptrs[0].last, 1);
  EXPECT_EQ(handle.array(1), "0 slots, 0 used, no memory");
}

/** Gives the handle an array that is aligned so that its own address belongs in it. */
void add_array_that_holds_itself(StandaloneHandle& handle) {
  constexpr std::size_t kBytes = 16 * sizeof(qk_mem_ptr);
  auto* slots = static_cast<qk_mem_ptr*>(std::aligned_alloc(128, kBytes));
  std::fill_n(slots, 16, qk_mem_ptr{});
  slots[0] = {slots, nullptr, "app.c", 16, 48, 1, 5, 'P', 0};
  handle->ptrs[0].capacity = 16;
  handle->ptrs[0].used = 1;
  handle->ptrs[0].ptrs = slots;
  handle->overhead_qty = 1;
  handle->overhead_amount = 768;
}

TEST(GetPtr, FindsTheArraysOwnRecordUntilASlotIsUsed) {
  StandaloneHandle handle;
  add_array_that_holds_itself(handle);
  qk_mem_ptr* slots = handle->ptrs[0].ptrs;
  EXPECT_EQ(qk_mem_get_ptr(handle, slots), slots);
  record(handle, 0x1000);
  EXPECT_EQ(qk_mem_get_ptr(handle, slots), nullptr);
}

TEST(FreePtr, IgnoresTheArraysOwnRecord) {
  StandaloneHandle handle;
  add_array_that_holds_itself(handle);
  qk_mem_ptr* slots = handle->ptrs[0].ptrs;
  qk_mem_free_ptr(handle, slots);
  EXPECT_EQ(slots->address, slots);
  EXPECT_EQ(slots->kind, 'P');
  EXPECT_EQ(handle.array(), "16 slots, 1 used");
  EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 1 for 768, tag 0 for 0");
}

TEST(FreePtr, ClearsTheWholeSlotAndLeavesTheBytesToTheCaller) {
  StandaloneHandle handle;
  qk_mem_ptr* slot = record(handle, 0x1000);
  slot->file = "app.c";
  slot->line = 5;
  slot->count = 1;
  slot->size = 100;
  slot->seq = 9;
  slot->baselined = 1;
  handle->amount = handle.tag.amount = 100;
  qk_mem_free_ptr(handle, slot);
  EXPECT_TRUE(is_clear(*slot));
  EXPECT_EQ(handle.array(), "16 slots, 1 used");
  EXPECT_EQ(handle.sums(), "data 0 for 100, overhead 1 for 768, tag 0 for 100");
}

TEST(FreePtr, LowersTheDataEvenForABookkeepingSlot) {
  for (const char kind : {'H', 'T'}) {
    StandaloneHandle handle;
    record(handle, 0x2000, 'M');
    qk_mem_ptr* slot = record(handle, 0x1000, kind);
    EXPECT_EQ(handle.sums(), "data 1 for 0, overhead 2 for 768, tag 1 for 0");
    qk_mem_free_ptr(handle, slot);
    EXPECT_EQ(handle.sums(), "data 0 for 0, overhead 2 for 768, tag 0 for 0") << kind;
  }
}

TEST(FreePtr, LowersWhatTheKindSaysForACopy) {
  struct {
    char kind;
    const char* sums;
  } constexpr kRows[] = {
      {'H', "data 1 for 0, overhead 1 for 768, tag 1 for 0"},
      {'T', "data 1 for 0, overhead 1 for 768, tag 1 for 0"},
      {'M', "data 1 for 0, overhead 1 for 768, tag 1 for 0"},
      {'W', "data 1 for 0, overhead 1 for 768, tag 1 for 0"},
  };
  for (const auto& row : kRows) {
    StandaloneHandle handle;
    record(handle, 0x2000, 'M');
    const qk_mem_ptr* slot = record(handle, 0x1000, row.kind);
    qk_mem_ptr copy = *slot;
    qk_mem_free_ptr(handle, &copy);
    EXPECT_TRUE(is_clear(*slot));
    EXPECT_EQ(copy.address, at(0x1000));
    EXPECT_EQ(handle.sums(), row.sums) << row.kind;
  }
}

TEST(FreePtr, IgnoresAnUnknownAddress) {
  StandaloneHandle handle;
  record(handle, 0x1000);
  for (const std::uintptr_t address : {0x2000, 0x1010}) {
    qk_mem_ptr unknown = {};
    unknown.address = at(address);
    unknown.kind = 'M';
    qk_mem_free_ptr(handle, &unknown);
    EXPECT_EQ(handle.array(), "16 slots, 2 used");
    EXPECT_EQ(handle.sums(), "data 1 for 0, overhead 1 for 768, tag 1 for 0");
  }
}

TEST(FreePtr, FreesTheLastFoundOfTwoRecordsFirst) {
  StandaloneHandle handle;
  record(handle, 0x1000);
  record(handle, 0x1000);
  qk_mem_ptr copy = *qk_mem_get_ptr(handle, at(0x1000));
  qk_mem_free_ptr(handle, &copy);
  EXPECT_EQ(index_of(handle, qk_mem_get_ptr(handle, at(0x1000))), 1);
  qk_mem_free_ptr(handle, &copy);
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1000)), nullptr);
  EXPECT_EQ(handle.array(), "16 slots, 1 used");
}

TEST(FreePtrs, RemovesTheArrayFromOverheadButKeepsItsMemory) {
  StandaloneHandle handle;
  for (std::uintptr_t i = 1; i <= 16; ++i) record(handle, i * 0x100);
  record(handle, 0x1010);
  EXPECT_EQ(handle.sums(), "data 17 for 0, overhead 2 for 4608, tag 17 for 0");
  const qk_mem_ptr* slots = handle->ptrs[0].ptrs;
  qk_mem_free_ptrs(handle, 0);
  EXPECT_EQ(handle.sums(), "data 17 for 0, overhead 1 for 768, tag 17 for 0");
  EXPECT_EQ(handle.array(), "80 slots, 16 used");
  EXPECT_EQ(handle->ptrs[0].ptrs, slots);
  EXPECT_TRUE(is_clear(slots[0]));
  EXPECT_EQ(slots[1].address, at(0x100));
  EXPECT_EQ(handle.array(1), "16 slots, 2 used");
}

TEST(PointerTable, KeepsAMutexThatTheCallerHolds) {
  StandaloneHandle handle;
  qk::Mtx mtx;
  handle->mtx = &mtx;
  mtx.lock();
  qk_mem_ptr* slot = record(handle, 0x1000);
  EXPECT_EQ(qk_mem_get_ptr(handle, at(0x1000)), slot);
  qk_mem_free_ptr(handle, slot);
  EXPECT_TRUE(mtx.held());
  mtx.unlock();
  EXPECT_FALSE(mtx.held());
}

TEST(PointerTable, ReleasesTheHandlesMutexInEveryCase) {
  StandaloneHandle handle;
  qk::Mtx mtx;
  handle->mtx = &mtx;
  qk_mem_ptr* slot = record(handle, 0x1000);
  EXPECT_FALSE(mtx.held());
  qk_mem_get_ptr(handle, at(0x1000));
  EXPECT_FALSE(mtx.held());
  qk_mem_get_ptr(handle, at(0x1010));
  EXPECT_FALSE(mtx.held());
  qk_mem_ptr copy = *slot;
  qk_mem_free_ptr(handle, slot);
  EXPECT_FALSE(mtx.held());
  qk_mem_free_ptr(handle, &copy);
  EXPECT_FALSE(mtx.held());
  std::thread other([&] { record(handle, 0x1020); });
  other.join();
  EXPECT_EQ(handle.sums(), "data 1 for 0, overhead 2 for 1536, tag 1 for 0");
}

}  // namespace
