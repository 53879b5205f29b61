#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;
using kit::Pool;
using kit::Scene;

std::int64_t next(int hid, void** array, std::size_t size = 8, std::size_t factor = 4) {
  return qk_mem_imarralloc(hid, array, size, factor, "src/app.c", 12);
}

void release(int hid, void** array) { qk_mem_iarrfree(hid, array, "lib/other.c", 80); }

/** The header in front of an array's elements: "last 0 of 4". */
std::string header_of(const void* array) {
  std::uint64_t words[2];
  std::memcpy(words, static_cast<const char*>(array) - 16, sizeof words);
  return "last " + std::to_string(words[0]) + " of " + std::to_string(words[1]);
}

bool is_zero(const void* memory, std::size_t size) {
  return std::string(static_cast<const char*>(memory), size) == std::string(size, '\0');
}

/** Handles on which an array can grow. */
class ManagedArray : public ::testing::TestWithParam<const char*> {
 protected:
  /** Fills memory that the next array can get with bytes other than zero. */
  void spoil_memory(int hid) {
    for (const std::size_t size : {100, 1000, 3000, 10000}) {
      void* memory = qk_mem_imalloc(hid, size, 16, "src/app.c", 1);
      std::memset(memory, 'x', size);
      qk_mem_ifree(hid, memory, "src/app.c", 2);
    }
  }

  Scene scene_;
};

std::string name_of_handle(const ::testing::TestParamInfo<const char*>& row) {
  const char* const names[] = {"Ordinary", "Shared", "Blocks", "SmallBlocks", "SharedBlocks"};
  return names[row.index];
}

INSTANTIATE_TEST_SUITE_P(On, ManagedArray,
                         ::testing::Values("", "MULTITHREADED", "BLOCKMGMT BLOCKFREE",
                                           "BLOCKMGMT BLOCKFREE BLOCKSIZE=64",
                                           "MULTITHREADED BLOCKMGMT BLOCKFREE BLOCKSIZE=100"),
                         name_of_handle);

TEST_P(ManagedArray, HandsOutOneSlotAfterAnother) {
  const Pool pool(GetParam());
  void* array = nullptr;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(next(pool, &array), i);
    EXPECT_EQ(header_of(array), "last " + std::to_string(i) + " of 4");
  }
  EXPECT_EQ(next(pool, &array), 4);
  EXPECT_EQ(header_of(array), "last 4 of 8");
  for (int i = 5; i < 8; ++i) EXPECT_EQ(next(pool, &array), i);
  EXPECT_EQ(header_of(array), "last 7 of 8");
  EXPECT_EQ(next(pool, &array), 8);
  EXPECT_EQ(header_of(array), "last 8 of 12");
  release(pool, &array);
  EXPECT_EQ(array, nullptr);
}

TEST_P(ManagedArray, StartsZeroed) {
  const Pool pool(GetParam());
  spoil_memory(pool);
  void* array = nullptr;
  EXPECT_EQ(next(pool, &array, 24, 10), 0);
  EXPECT_TRUE(is_zero(array, 240));
  release(pool, &array);
}

TEST_P(ManagedArray, KeepsItsElementsAndZeroesNewOnesInManyGrowths) {
  const Pool pool(GetParam());
  spoil_memory(pool);
  for (const std::size_t factor : {1, 3, 7}) {
    void* array = nullptr;
    for (std::int64_t i = 0; i < 300; ++i) {
      ASSERT_EQ(next(pool, &array, 24, factor), i);
      auto* elements = static_cast<char*>(array);
      const std::size_t capacity = (static_cast<std::size_t>(i) / factor + 1) * factor;
      ASSERT_TRUE(is_zero(elements + 24 * i, 24 * (capacity - static_cast<std::size_t>(i)))) << i;
      std::memset(elements + 24 * i, static_cast<int>('a' + i % 26), 24);
      for (std::int64_t j = 0; j <= i; ++j) {
        ASSERT_EQ(elements[24 * j], 'a' + j % 26) << "element " << j << " after growth to " << i;
        ASSERT_EQ(elements[24 * j + 23], 'a' + j % 26);
      }
    }
    release(pool, &array);
  }
}

TEST_P(ManagedArray, DoesNotDisturbItsNeighbours) {
  const Pool pool(GetParam());
  void* arrays[3] = {};
  for (int i = 0; i < 100; ++i) {
    for (int number = 0; number < 3; ++number) {
      ASSERT_EQ(next(pool, &arrays[number], sizeof(int), 5), i);
      static_cast<int*>(arrays[number])[i] = 1000 * number + i;
    }
  }
  for (int number = 0; number < 3; ++number) {
    for (int i = 0; i < 100; ++i) {
      ASSERT_EQ(static_cast<int*>(arrays[number])[i], 1000 * number + i);
    }
    release(pool, &arrays[number]);
  }
}

TEST_P(ManagedArray, IsAlignedTo16Bytes) {
  const Pool pool(GetParam());
  void* array = nullptr;
  for (int i = 0; i < 50; ++i) {
    qk_mem_imalloc(pool, 3, 1, "src/app.c", 11);
    next(pool, &array, 16, 3);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(array) % 16, 0U);
  }
  release(pool, &array);
}

TEST_P(ManagedArray, GrowsInEveryCallIfItGrowsByOneElement) {
  const Pool pool(GetParam());
  void* array = nullptr;
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(next(pool, &array, 1, 1), i);
    EXPECT_EQ(header_of(array), "last " + std::to_string(i) + " of " + std::to_string(i + 1));
  }
  release(pool, &array);
}

TEST_P(ManagedArray, CanGrowByADifferentFactorEachTime) {
  const Pool pool(GetParam());
  void* array = nullptr;
  EXPECT_EQ(next(pool, &array, 8, 1), 0);
  EXPECT_EQ(next(pool, &array, 8, 10), 1);
  EXPECT_EQ(header_of(array), "last 1 of 11");
  EXPECT_TRUE(is_zero(array, 88));
  release(pool, &array);
}

TEST_P(ManagedArray, LeavesNoBytesBehind) {
  const Pool pool(GetParam(), "AB");
  const std::string before = kit::data_of(pool);
  void* array = nullptr;
  next(pool, &array, 1, 4);
  next(pool, &array, 1, 4);
  release(pool, &array);
  EXPECT_EQ(kit::data_of(pool), before);
}

TEST_P(ManagedArray, ChecksItsArgumentsInOrder) {
  const Pool pool(GetParam());
  void* array = nullptr;
  EXPECT_EQ(next(pool, nullptr, 0, 0), -1);
  EXPECT_EQ(qk_mem_error(), 5014);
  EXPECT_EQ(next(pool, &array, 0, 0), -2);
  EXPECT_EQ(qk_mem_error(), 5022);
  Qk_mem_error = 0;
  EXPECT_EQ(next(pool, &array, 8, 0), -3);
  EXPECT_EQ(qk_mem_error(), 5022);
  EXPECT_EQ(array, nullptr);
}

TEST(ManagedArrayOnTheDataHandle, GrowsWhileNothingIsConfigured) {
  Scene scene;
  void* array = nullptr;
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(next(2, &array, sizeof(int), 3), i);
    static_cast<int*>(array)[i] = i;
  }
  for (int i = 0; i < 100; ++i) ASSERT_EQ(static_cast<int*>(array)[i], i);
  release(2, &array);
  EXPECT_EQ(kit::data_of(2), "0 for 0");
}

TEST(ManagedArrayEvents, AreThoseOfCallocReallocAndFree) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  void* array = nullptr;
  next(ledger.pool, &array);
  next(ledger.pool, &array);
  EXPECT_EQ(ledger.log(), "   qk_mem_icalloc:        3 [p1] C 1/48 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 C [p1] 1 48 app.c 12 48\n");
  EXPECT_EQ(ledger.sums(), "handle 1 for 48, tag 1 for 48, events 1");
  for (int i = 0; i < 2; ++i) next(ledger.pool, &array);
  ledger.skip_all();
  next(ledger.pool, &array);
  EXPECT_EQ(ledger.trace(), "3 R [p1] 1 80 app.c 12 32\n");
  EXPECT_EQ(ledger.record(static_cast<char*>(array) - 16), "R 1/80 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 80, tag 1 for 80, events 1");
  ledger.skip_all();
  release(ledger.pool, &array);
  EXPECT_EQ(ledger.log(), "   qk_mem_ifree:          3 [p1] F other.c:80; R 80 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 F [p1] 1 80 other.c 80 -80\n");
}

TEST(ManagedArrayEvents, AreThoseOfPiecesInBlocks) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, "BLOCKMGMT BLOCKFREE BLOCKSIZE=256");
  void* array = nullptr;
  next(ledger.pool, &array, 8, 1);
  next(ledger.pool, &array, 8, 1);
  release(ledger.pool, &array);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_icalloc:        3 [p1] c 1/24 app.c:12\n"
            "   qk_mem_irealloc:       3 [p1] r 32 app.c:12; [p1] c 1/24 app.c:12\n"
            "   qk_mem_ifree:          3 [p1] f other.c:80; r 32 app.c:12\n");
  EXPECT_EQ(ledger.trace(),
            "3 c [p1] 1 24 app.c 12 0\n"
            "3 r [p1] 1 32 app.c 12 0\n"
            "3 f [p1] 1 32 other.c 80 0\n");
  EXPECT_EQ(kit::blocks_of(ledger.pool), "256:0-0");
}

TEST(ReleaseOfManagedArray, AcceptsAnArrayThatWasNeverCreated) {
  Scene scene("EXCEPTIONS");
  qk_mem_init();
  scene.skip_log();
  void* array = nullptr;
  release(2, &array);
  EXPECT_EQ(array, nullptr);
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(ReleaseOfManagedArray, RefusesANullAddress) {
  Scene scene;
  release(2, nullptr);
  EXPECT_EQ(qk_mem_error(), 5014);
}

}  // namespace
