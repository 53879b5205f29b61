#include "support/page_arena.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "support/numbered_store.h"

namespace {

TEST(PageArena, GivesMemoryThatIsZeroAndAligned) {
  qk::PageArena arena;
  for (const std::size_t bytes : {1, 16, 17, 4000, 16384, 16385, 1000000}) {
    auto* const memory = static_cast<unsigned char*>(arena.take(bytes));
    ASSERT_NE(nullptr, memory);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(memory) % 16);
    for (std::size_t i = 0; i < bytes; ++i) ASSERT_EQ(0, memory[i]);
    std::memset(memory, 0xFF, bytes);
  }
}

TEST(PageArena, AlignsWhatHasTheSizeOfACacheLine) {
  qk::PageArena arena;
  for (int i = 0; i < 3000; ++i) {
    ASSERT_NE(nullptr, arena.take(16));
    for (const std::size_t bytes : {64, 100, 3000}) {
      ASSERT_EQ(0U, reinterpret_cast<std::uintptr_t>(arena.take(bytes)) % 64) << bytes;
    }
  }
}

TEST(PageArena, ReusesWhatIsGivenBackAndClearsIt) {
  qk::PageArena arena;
  void* const memory = arena.take(100);
  std::memset(memory, 0xFF, 100);
  arena.give_back(memory, 100);
  auto* const again = static_cast<unsigned char*>(arena.take(120));
  EXPECT_EQ(memory, again);
  for (int i = 0; i < 120; ++i) ASSERT_EQ(0, again[i]) << i;
}

TEST(PageArena, NeverMapsMoreThanItsLimit) {
  qk::PageArena arena;
  arena.set_limit(100000);
  EXPECT_NE(nullptr, arena.take(100));
  EXPECT_EQ(65536U, arena.mapped());
  EXPECT_EQ(nullptr, arena.take(50000));
  EXPECT_EQ(65536U, arena.mapped());
  EXPECT_NE(nullptr, arena.take(30000));
  EXPECT_EQ(nullptr, arena.take(SIZE_MAX));
}

TEST(PageArena, KnowsItsMemory) {
  qk::PageArena arena;
  qk::PageArena other;
  for (const std::size_t bytes : {16, 50000, 200000}) {
    auto* const memory = static_cast<char*>(arena.take(bytes));
    EXPECT_TRUE(arena.has(memory));
    EXPECT_TRUE(arena.has(memory + bytes - 1));
    EXPECT_FALSE(other.has(memory));
  }
  EXPECT_FALSE(arena.has(&arena));
  EXPECT_FALSE(arena.has(nullptr));
}

TEST(NumberedStore, KeepsObjectsWhereTheyAre) {
  qk::PageArena arena;
  qk::NumberedStore<std::uint64_t> store;
  std::uint64_t* const first = &store.at(store.add(arena));
  for (std::uint32_t number = 1; number <= 10000; ++number) {
    if (number > 1) {
      ASSERT_EQ(number, store.add(arena));
    }
    EXPECT_EQ(0U, store.at(number));
    store.at(number) = number;
  }
  EXPECT_EQ(first, &store.at(1));
  for (std::uint32_t number = 1; number <= 10000; ++number) ASSERT_EQ(number, store.at(number));
  EXPECT_EQ(0U, store.count());
  store.publish_added();
  EXPECT_EQ(10000U, store.count());
}

TEST(NumberedStore, ReturnsNoNumberWithoutMemory) {
  qk::PageArena arena;
  arena.set_limit(0);
  qk::NumberedStore<std::uint64_t> store;
  EXPECT_EQ(0U, store.add(arena));
}

}  // namespace
