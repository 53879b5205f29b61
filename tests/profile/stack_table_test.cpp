#include "profile/stack_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "support/page_arena.h"

namespace {

using qk::mem::Stack;
using qk::mem::StackTable;
using Frames = std::vector<std::uintptr_t>;

Stack stack_of(const Frames& frames) { return {frames.data(), static_cast<int>(frames.size())}; }

Frames frames_of(const Stack& stack) { return {stack.frames, stack.frames + stack.depth}; }

/** The stack of a number, with 16 frames as in programs: near each other, and many in common. */
Frames numbered(std::uintptr_t number) {
  Frames frames(16);
  for (std::uintptr_t i = 0; i < 16; ++i) {
    frames[i] = 0x555555554000 + i * 64 + (number >> i) % 2 * 0x1000;
  }
  frames[15] += number / 65536 * 16;
  return frames;
}

class Stacks : public ::testing::Test {
 protected:
  std::optional<std::uint32_t> insert(const Frames& frames) {
    return table_.intern(stack_of(frames));
  }
  std::uint32_t find(const Frames& frames) { return table_.find(stack_of(frames)); }

  qk::PageArena arena_;
  StackTable table_{arena_};
};

TEST_F(Stacks, AreNumberedFromOneInTheOrderTheyCame) {
  EXPECT_EQ(table_.size(), 0U);
  EXPECT_EQ(insert({11, 12, 13}), 1U);
  EXPECT_EQ(insert({21, 22}), 2U);
  EXPECT_EQ(insert({31}), 3U);
  EXPECT_EQ(table_.size(), 3U);
}

TEST_F(Stacks, KeepTheirNumberWhenTheyComeAgain) {
  ASSERT_EQ(insert({11, 12, 13}), 1U);
  ASSERT_EQ(insert({21, 22}), 2U);
  EXPECT_EQ(insert({11, 12, 13}), 1U);
  EXPECT_EQ(insert({21, 22}), 2U);
  EXPECT_EQ(table_.size(), 2U);
}

TEST_F(Stacks, AreFoundOnceTheyAreThere) {
  EXPECT_EQ(find({11, 12, 13}), 0U);
  ASSERT_EQ(insert({11, 12, 13}), 1U);
  EXPECT_EQ(find({11, 12, 13}), 1U);
  EXPECT_EQ(find({11, 12, 14}), 0U);
}

TEST_F(Stacks, DifferInEachFrameInOrderAndInDepth) {
  const Frames whole = {11, 12, 13, 14, 15};
  std::vector<Frames> different = {whole, {15, 14, 13, 12, 11}, {11, 13, 12, 14, 15}};
  for (std::size_t i = 0; i < whole.size(); ++i) {
    different.push_back(whole);
    different.back()[i] = 99;
    if (i != 0) different.emplace_back(whole.begin(), whole.begin() + static_cast<long>(i));
    if (i != 0) different.emplace_back(whole.begin() + static_cast<long>(i), whole.end());
  }
  std::uint32_t number = 0;
  for (const Frames& stack : different) EXPECT_EQ(insert(stack), ++number);
  number = 0;
  for (const Frames& stack : different) EXPECT_EQ(find(stack), ++number);
}

TEST_F(Stacks, AreReadByTheirNumbers) {
  ASSERT_EQ(insert({11, 12, 13}), 1U);
  ASSERT_EQ(insert({21, 22}), 2U);
  EXPECT_EQ(frames_of(table_.stack(1)), (Frames{11, 12, 13}));
  EXPECT_EQ(frames_of(table_.stack(2)), (Frames{21, 22}));
}

TEST_F(Stacks, WithoutFramesAreZero) {
  EXPECT_EQ(insert({}), 0U);
  EXPECT_EQ(find({}), 0U);
  EXPECT_EQ(table_.stack(0).depth, 0);
  EXPECT_EQ(table_.size(), 0U);
}

TEST_F(Stacks, HaveNoFramesUnderUnknownNumbers) {
  ASSERT_EQ(insert({11}), 1U);
  for (const std::uint32_t number : {2U, 64U, 65U, 1000000U, UINT32_MAX}) {
    EXPECT_EQ(table_.stack(number).depth, 0) << number;
  }
}

TEST_F(Stacks, CanBeOfEveryDepth) {
  Frames frames;
  for (std::uint32_t depth = 1; depth <= 64; ++depth) {
    frames.push_back(1000 + depth);
    ASSERT_EQ(insert(frames), depth);
  }
  for (std::uint32_t depth = 64; depth >= 1; --depth) {
    EXPECT_EQ(frames_of(table_.stack(depth)), frames);
    EXPECT_EQ(find(frames), depth);
    frames.pop_back();
  }
}

TEST_F(Stacks, AreAllThereWhenThereAreAHundredThousand) {
  constexpr std::uint32_t kMany = 100000;
  for (std::uint32_t i = 0; i < kMany; ++i) ASSERT_EQ(insert(numbered(i)), i + 1);
  EXPECT_EQ(table_.size(), kMany);
  for (std::uint32_t i = 0; i < kMany; ++i) {
    ASSERT_EQ(find(numbered(i)), i + 1);
    ASSERT_EQ(frames_of(table_.stack(i + 1)), numbered(i));
  }
  EXPECT_LE(arena_.mapped(), kMany * std::uint64_t{190});
}

/** So many that some have the same hash of 32 bits. */
TEST_F(Stacks, DifferEvenIfTheirHashesAreEqual) {
  constexpr std::uint32_t kMany = 400000;
  for (std::uint32_t i = 1; i <= kMany; ++i) ASSERT_EQ(insert({i * 8}), i);
  for (std::uint32_t i = 1; i <= kMany; ++i) ASSERT_EQ(find({i * 8}), i);
}

TEST_F(Stacks, StayWhereTheyAreWhenOthersCome) {
  ASSERT_EQ(insert(numbered(0)), 1U);
  const Stack first = table_.stack(1);
  for (std::uint32_t i = 1; i < 10000; ++i) ASSERT_EQ(insert(numbered(i)), i + 1);
  EXPECT_EQ(table_.stack(1).frames, first.frames);
}

TEST_F(Stacks, AreRefusedOnlyAsNewOnesWhenMemoryEnds) {
  arena_.set_limit(std::uint64_t{1} << 20);
  std::uint32_t inserted = 0;
  while (inserted < 100000 && insert(numbered(inserted)).has_value()) ++inserted;
  EXPECT_GT(inserted, 4000U);
  EXPECT_LT(inserted, 8000U);
  EXPECT_EQ(insert(numbered(inserted)), std::nullopt);
  EXPECT_EQ(find(numbered(inserted)), 0U);
  EXPECT_EQ(table_.size(), inserted);
  for (std::uint32_t i = 0; i < inserted; ++i) ASSERT_EQ(insert(numbered(i)), i + 1);
  EXPECT_LE(arena_.mapped(), std::uint64_t{1} << 20);
}

TEST_F(Stacks, AreAcceptedAgainWhenThereIsMemoryAgain) {
  for (const std::uint64_t limit : {0U, 1U << 16, 1U << 17, 1U << 18, 1U << 19}) {
    arena_.set_limit(limit);
    while (insert(numbered(table_.size())).has_value()) EXPECT_LT(table_.size(), 10000U);
  }
  arena_.set_limit(UINT64_MAX);
  const std::uint32_t before = table_.size();
  EXPECT_EQ(insert(numbered(before)), before + 1);
  for (std::uint32_t i = 0; i <= before; ++i) ASSERT_EQ(find(numbered(i)), i + 1);
}

TEST_F(Stacks, HaveOneNumberEachWhenThreadsInsertThemAtOnce) {
  constexpr std::uint32_t kStacks = 3000;
  std::mutex mutex;
  std::vector<std::vector<std::uint32_t>> numbers(4, std::vector<std::uint32_t>(kStacks));
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < numbers.size(); ++thread) {
    threads.emplace_back([&, thread] {
      for (std::uint32_t i = 0; i < kStacks; ++i) {
        const std::uint32_t which = thread % 2 == 0 ? i : kStacks - 1 - i;
        const Frames frames = numbered(which);
        std::uint32_t number = find(frames);
        if (number == 0) {
          const std::lock_guard lock(mutex);
          number = insert(frames).value();
        }
        numbers[thread][which] = number;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(table_.size(), kStacks);
  for (const std::vector<std::uint32_t>& others : numbers) EXPECT_EQ(others, numbers[0]);
  for (std::uint32_t i = 0; i < kStacks; ++i) {
    ASSERT_EQ(frames_of(table_.stack(numbers[0][i])), numbered(i));
  }
}

TEST_F(Stacks, AreReadWhileOthersAreInserted) {
  std::atomic<bool> done = false;
  std::atomic<bool> right = true;
  std::thread reader([&] {
    while (!done) {
      for (std::uint32_t number = 1; number <= table_.size(); number += 7) {
        if (frames_of(table_.stack(number)) != numbered(number - 1)) right = false;
        // A stack that is just being inserted is not found, nor is any while the table grows.
        const std::uint32_t found = find(numbered(number - 1));
        if (found != number && found != 0) right = false;
      }
    }
  });
  for (std::uint32_t i = 0; i < 5000; ++i) EXPECT_EQ(insert(numbered(i)), i + 1);
  done = true;
  reader.join();
  EXPECT_TRUE(right);
  for (std::uint32_t i = 0; i < 5000; ++i) EXPECT_EQ(find(numbered(i)), i + 1);
}

}  // namespace
