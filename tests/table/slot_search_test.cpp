// Which slot is found, and which one is taken, whatever the addresses are.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_array.h"
#include "tests/kit/array_check.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/placement.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::at;
using kit::StandaloneHandle;

qk_mem_debug silent = {};

qk_mem_ptr* record(StandaloneHandle& handle, void* address) {
  return qk_mem_new_ptr(handle, address, 'M', "src/app.c", 5, &silent);
}

/** The slot in which an address is found; -1 if it is in none. */
std::ptrdiff_t found(StandaloneHandle& handle, const void* address) {
  const qk_mem_ptr* slot = qk_mem_get_ptr(handle, address);
  return slot == nullptr ? -1 : slot - handle->ptrs[0].ptrs;
}

void forget(StandaloneHandle& handle, const void* address) {
  qk_mem_free_ptr(handle, qk_mem_get_ptr(handle, address));
}

/** Addresses of array 0 that all have the same print. */
std::vector<void*> alike(std::size_t count) {
  std::vector<void*> addresses;
  for (std::uintptr_t number = 0x1000; addresses.size() < count; number += 0x80) {
    if (qk::mem::print_of(at(number)) == qk::mem::print_of(at(0x1000))) {
      addresses.push_back(at(number));
    }
  }
  return addresses;
}

TEST(SlotSearch, TellsAddressesWithEqualPrintsApart) {
  StandaloneHandle handle;
  const std::vector<void*> addresses = alike(16);
  for (std::size_t i = 0; i < 15; ++i) record(handle, addresses[i]);
  for (const std::size_t i : {0, 14, 7, 8, 1}) {
    EXPECT_EQ(found(handle, addresses[i]), static_cast<std::ptrdiff_t>(i) + 1);
    EXPECT_EQ(handle->ptrs[0].last, static_cast<std::int32_t>(i) + 1);
  }
  EXPECT_EQ(found(handle, addresses[15]), -1);
  EXPECT_EQ(handle->ptrs[0].last, 2);
}

TEST(SlotSearch, FindsNothingInAFreeSlot) {
  StandaloneHandle handle;
  record(handle, at(0x1000));
  record(handle, at(0x1080));
  forget(handle, at(0x1000));
  EXPECT_EQ(found(handle, at(0x1000)), -1);
  EXPECT_EQ(found(handle, nullptr), -1);
  EXPECT_EQ(found(handle, at(0x1080)), 2);
}

TEST(SlotSearch, PrefersTheSlotUsedLastThenTheLowest) {
  StandaloneHandle handle;
  for (const std::uintptr_t number : {0x1000U, 0x1080U, 0x1000U, 0x1000U}) {
    record(handle, at(number));
  }
  EXPECT_EQ(found(handle, at(0x1000)), 4);
  EXPECT_EQ(found(handle, at(0x1080)), 2);
  EXPECT_EQ(found(handle, at(0x1000)), 1);
  forget(handle, at(0x1000));
  EXPECT_EQ(found(handle, at(0x1000)), 3);
  EXPECT_EQ(found(handle, at(0x1080)), 2);
  record(handle, at(0x1000));
  EXPECT_EQ(found(handle, at(0x1000)), 1);
}

TEST(SlotSearch, FindsTheArrayItselfOnlyWhileItIsUsedLast) {
  kit::align_requests();  // so that its address belongs to array 0
  StandaloneHandle handle;
  record(handle, at(0x1000));
  void* const own = handle->ptrs[0].ptrs;
  EXPECT_EQ(found(handle, own), -1);
  handle->ptrs[0].last = 0;
  EXPECT_EQ(found(handle, own), 0);
  record(handle, own);
  EXPECT_EQ(found(handle, own), 2);
  handle->ptrs[0].last = 0;
  EXPECT_EQ(found(handle, own), 0);
  EXPECT_EQ(found(handle, at(0x1000)), 1);
  EXPECT_EQ(found(handle, own), 2);
}

TEST(SlotSearch, FindsNothingInAnArrayThatLostItsSlots) {
  StandaloneHandle handle;
  kit::fail_request(1);
  EXPECT_EQ(record(handle, at(0x1000)), nullptr);
  EXPECT_TRUE(kit::has_failed());
  EXPECT_EQ(handle.array(), "16 slots, 0 used, no memory");
  for (std::uintptr_t i = 0; i < 1000; ++i) {
    ASSERT_EQ(qk_mem_get_ptr(handle, at(0x1000 + i * 0x80)), nullptr);
  }
  EXPECT_EQ(record(handle, at(0x1000)), nullptr);
}

/** Slots as they were meant to be: searched one by one. */
class PlainSlots {
 public:
  /** The first one is the array's own. */
  explicit PlainSlots(std::size_t capacity) : slots_(capacity) { slots_[0] = &slots_; }

  std::ptrdiff_t find(const void* address) {
    if (slots_[last_] == address) return static_cast<std::ptrdiff_t>(last_);
    return first_with(address);
  }

  std::ptrdiff_t take(void* address) {
    std::ptrdiff_t slot = first_with(nullptr);
    if (slot < 0) {
      slot = static_cast<std::ptrdiff_t>(slots_.size());
      slots_.resize(slots_.size() + 64);
    }
    last_ = static_cast<std::size_t>(slot);
    slots_[last_] = address;
    return slot;
  }

  bool forget(const void* address) {
    const std::ptrdiff_t slot = find(address);
    if (slot >= 0) slots_[static_cast<std::size_t>(slot)] = nullptr;
    return slot >= 0;
  }

  [[nodiscard]] std::size_t capacity() const { return slots_.size(); }

 private:
  std::ptrdiff_t first_with(const void* address) {
    for (std::size_t i = 1; i < slots_.size(); ++i) {
      if (slots_[i] != address) continue;
      last_ = i;
      return static_cast<std::ptrdiff_t>(i);
    }
    return -1;
  }

  std::vector<const void*> slots_;
  std::size_t last_ = 0;
};

/** Many steps on an array without records, which comes to have about `live` of them. */
void expect_plain_search(StandaloneHandle& handle, const std::vector<void*>& addresses,
                         unsigned live, unsigned seed, void (*begin)() = nullptr) {
  PlainSlots plain(static_cast<std::size_t>(handle->ptrs[0].capacity));
  std::mt19937 random(seed);
  unsigned records = 0;
  if (begin != nullptr) begin();
  for (int step = 0; step < 6000; ++step) {
    void* const address = addresses[random() % addresses.size()];
    if (random() % 4 == 0) {
      ASSERT_EQ(found(handle, address), plain.find(address)) << step;
    } else if (random() % (2 * live) >= records) {
      ASSERT_EQ(record(handle, address) - handle->ptrs[0].ptrs, plain.take(address)) << step;
      ++records;
    } else if (plain.forget(address)) {
      forget(handle, address);
      --records;
    }
    if (step % 100 == 0) {
      ASSERT_EQ(kit::check_array(handle->ptrs[0]), "") << step;
    }
  }
  EXPECT_EQ(static_cast<std::size_t>(handle->ptrs[0].capacity), plain.capacity());
}

/** The same on a new array. */
void expect_plain_search(const std::vector<void*>& addresses, unsigned live, unsigned seed) {
  StandaloneHandle handle;
  record(handle, addresses[0]);
  forget(handle, addresses[0]);
  expect_plain_search(handle, addresses, live, seed);
}

TEST(SlotSearch, IsThatOfAPlainWalkInASmallArray) {
  const std::vector<void*> addresses = alike(6);
  for (unsigned seed = 1; seed <= 10; ++seed) expect_plain_search(addresses, 6, seed);
}

TEST(SlotSearch, IsThatOfAPlainWalkAcrossGrowths) {
  std::vector<void*> addresses = alike(10);
  for (std::uintptr_t i = 0; i < 50; ++i) addresses.push_back(at(0x7F0000000000 + (i << 21)));
  for (const unsigned live : {12U, 40U, 120U, 300U}) expect_plain_search(addresses, live, live);
}

TEST(SlotSearch, IsThatOfAPlainWalkForOneAddress) {
  expect_plain_search({at(0x1000)}, 100, 1);
  expect_plain_search(alike(2), 500, 2);
}

TEST(SlotSearch, IsThatOfAPlainWalkWithoutMemoryForAnIndex) {
  const std::vector<void*> addresses = alike(16);
  StandaloneHandle handle;
  for (void* address : addresses) record(handle, address);
  for (std::size_t i = 16; i-- > 0;) {
    handle->ptrs[0].last = static_cast<std::int32_t>(i) + 1;
    forget(handle, addresses[i]);
  }
  ASSERT_EQ(handle.array(), "80 slots, 1 used");
  expect_plain_search(handle, addresses, 25, 1, kit::fail_all_requests);
  kit::let_succeed();
  EXPECT_EQ(qk::mem::index_of(handle->ptrs[0]), nullptr);
}

}  // namespace
