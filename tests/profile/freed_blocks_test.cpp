#include "history/freed_blocks.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qk::mem::history::Ending;
using qk::mem::history::FreedBlock;
using qk::mem::history::History;
using qk::mem::history::kEntriesOfChunk;
using qk::mem::history::Writer;

const void* address(std::uint64_t number) { return reinterpret_cast<const void*>(number * 16); }

/** Releases a block as the number of its address, which is also the event of its allocation. */
struct Releases {
  void add(Writer& writer, std::uint32_t number_of_writer, std::uint64_t number, int line = 1) {
    const qk::mem::history::Release release = {"src/a.c", line, Ending::kFreed};
    if (writer.add(address(number), number, number << 32, release)) return;
    history.open(writer, number_of_writer, arena);
    if (!writer.add(address(number), number, number << 32, release)) ++lost;
  }

  [[nodiscard]] bool knows(std::uint64_t number) const {
    return history.find(address(number)).has_value();
  }

  History history;
  qk::PageArena arena;
  int lost = 0;
};

TEST(FreedBlocks, TellWhoReleasedThem) {
  Releases releases;
  releases.history.set_limit(1);
  Writer writer = {};
  releases.history.open(writer, 7, releases.arena);
  ASSERT_TRUE(writer.add(address(5), 40, 99, {"src/b.c", 12, Ending::kResized}));
  const auto block = releases.history.find(address(5));
  ASSERT_TRUE(block);
  EXPECT_EQ(40U, block->bytes);
  EXPECT_EQ(99U, block->allocation);
  EXPECT_STREQ("src/b.c", block->release.path);
  EXPECT_EQ(12, block->release.line);
  EXPECT_EQ(Ending::kResized, block->release.ending);
  EXPECT_EQ(7U, block->writer);
  EXPECT_FALSE(releases.knows(8));
}

TEST(FreedBlocks, KeepTheLargestValuesApart) {
  Releases releases;
  releases.history.set_limit(1);
  Writer writer = {};
  releases.history.open(writer, 1, releases.arena);
  ASSERT_TRUE(
      writer.add(address(1), UINT64_MAX, UINT64_MAX, {"", (1 << 23) - 1, Ending::kWithHandle}));
  const auto block = releases.history.find(address(1));
  ASSERT_TRUE(block);
  EXPECT_EQ((std::uint64_t{1} << 38) - 1, block->bytes);
  EXPECT_EQ((1 << 23) - 1, block->release.line);
  EXPECT_EQ(Ending::kWithHandle, block->release.ending);
}

TEST(FreedBlocks, AreAsManyAsAskedFor) {
  Releases releases;
  releases.history.set_limit(1000);
  Writer writer = {};
  for (std::uint64_t number = 1; number <= 100000; ++number) releases.add(writer, 1, number);
  for (std::uint64_t number = 99001; number <= 100000; ++number)
    EXPECT_TRUE(releases.knows(number));
  EXPECT_FALSE(releases.knows(100000 - 5 * kEntriesOfChunk));
  EXPECT_EQ(0, releases.lost);
}

TEST(FreedBlocks, OfAQuietHandleAreKeptBesideABusyOne) {
  Releases releases;
  releases.history.set_limit(1000);
  Writer quiet = {};
  Writer busy = {};
  releases.add(quiet, 1, 1);
  for (std::uint64_t number = 2; number <= 100000; ++number) releases.add(busy, 2, number);
  EXPECT_TRUE(releases.knows(1));
  EXPECT_EQ(1U, releases.history.find(address(1))->writer);
}

TEST(FreedBlocks, OfMoreHandlesThanChunksAreAllKept) {
  Releases releases;
  releases.history.set_limit(1);
  Writer writers[100] = {};
  for (std::uint32_t i = 0; i < 100; ++i) releases.add(writers[i], i, i + 1);
  for (std::uint32_t i = 0; i < 100; ++i) EXPECT_TRUE(releases.knows(i + 1));
}

TEST(FreedBlocks, OfTheSameAddressAreTheOneThatWasAllocatedLast) {
  Releases releases;
  releases.history.set_limit(10000);
  Writer first = {};
  Writer second = {};
  releases.add(first, 1, 1);
  releases.add(second, 2, 2);
  const qk::mem::history::Release release = {"", 3, Ending::kFreed};
  ASSERT_TRUE(second.add(address(9), 0, std::uint64_t{10} << 32, release));
  ASSERT_TRUE(first.add(address(9), 0, std::uint64_t{20} << 32, release));
  EXPECT_EQ(1U, releases.history.find(address(9))->writer);
  ASSERT_TRUE(second.add(address(9), 0, std::uint64_t{30} << 32, release));
  EXPECT_EQ(2U, releases.history.find(address(9))->writer);
}

TEST(FreedBlocks, ThatBeginAtAnAddressComeBeforeThoseAroundIt) {
  Releases releases;
  releases.history.set_limit(1000);
  Writer writer = {};
  releases.history.open(writer, 1, releases.arena);
  const qk::mem::history::Release release = {"", 3, Ending::kFreed};
  ASSERT_TRUE(writer.add(address(10), 16, std::uint64_t{1} << 32, release));
  ASSERT_TRUE(writer.add(address(9), 64, std::uint64_t{2} << 32, release));
  EXPECT_EQ(16U, releases.history.find(address(10))->bytes);
  EXPECT_EQ(64U, releases.history.find(address(11))->bytes);
  EXPECT_FALSE(releases.knows(13));
}

TEST(FreedBlocks, AreNotKeptIfNoneAreAskedFor) {
  Releases releases;
  releases.history.set_limit(0);
  Writer writer = {};
  releases.add(writer, 1, 1);
  EXPECT_EQ(1, releases.lost);
  EXPECT_EQ(0U, releases.arena.mapped());
}

TEST(FreedBlocks, OverwriteTheOldestWithoutMemory) {
  Releases releases;
  releases.history.set_limit(100000);
  Writer writer = {};
  for (std::uint64_t number = 1; number <= kEntriesOfChunk + 1; ++number) {
    releases.add(writer, 1, number);
  }
  releases.arena.set_limit(0);
  const std::uint64_t last = 100000;
  for (std::uint64_t number = 1000; number <= last; ++number) releases.add(writer, 1, number);
  EXPECT_TRUE(releases.knows(last));
  EXPECT_FALSE(releases.knows(1));
  EXPECT_EQ(0, releases.lost);
}

TEST(FreedBlocks, AreFoundNearAnAddress) {
  Releases releases;
  releases.history.set_limit(1000);
  Writer writer = {};
  releases.add(writer, 7, 0x100);  // as many bytes at 16 times that
  releases.add(writer, 7, 0x1000);
  const auto* const begin = static_cast<const char*>(address(0x100));
  const auto number_near = [&](std::int64_t offset, std::uint64_t limit) -> std::uint64_t {
    const auto block = releases.history.nearest(begin + offset, limit);
    return block ? block->bytes : 0;
  };
  EXPECT_EQ(0x100U, number_near(0x100, 1));
  EXPECT_EQ(0x100U, number_near(0x103, 4));
  EXPECT_EQ(0U, number_near(0x103, 3));
  EXPECT_EQ(0x100U, number_near(-3, 4));
  EXPECT_EQ(0U, number_near(-3, 3));
  EXPECT_EQ(0U, number_near(8, 3)) << "it is inside";
  EXPECT_EQ(0x100U, number_near(0x200, 0x100000));
  EXPECT_EQ(0x1000U, number_near(0xEF00, 0x100000));
  EXPECT_EQ(7U, releases.history.nearest(begin - 1, 2)->writer);
}

TEST(FreedBlocks, NearAnAddressAreTheLastOfThemIfTheyAreAsNear) {
  Releases releases;
  releases.history.set_limit(1000);
  Writer writer = {};
  releases.history.open(writer, 7, releases.arena);
  const qk::mem::history::Release release = {"", 3, Ending::kFreed};
  ASSERT_TRUE(writer.add(address(1), 16, std::uint64_t{20} << 32, release));
  ASSERT_TRUE(writer.add(address(1), 8, std::uint64_t{30} << 32, release));
  ASSERT_TRUE(writer.add(address(1), 16, std::uint64_t{10} << 32, release));
  const auto* const begin = static_cast<const char*>(address(1));
  EXPECT_EQ(8U, releases.history.nearest(begin - 1, 2)->bytes);
  EXPECT_EQ(std::uint64_t{20} << 32, releases.history.nearest(begin + 16, 2)->allocation);
}

}  // namespace
