#include "lost/search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace qk::mem::lost;

/** Blocks of some words each, in memory of their own, and words that the program can reach. */
class Heap {
 public:
  explicit Heap(std::size_t words) : words_(words), blocks_(words) {}

  /** Adds a block of some words, which are zero, behind the one before. Returns its number. */
  std::size_t add(std::size_t words, std::uint32_t event = 0) {
    const std::uintptr_t begin = next_;
    next_ += words * sizeof(std::uintptr_t);
    addresses_.push_back(begin);
    EXPECT_TRUE(blocks_.push_back({{begin, next_}, 0, 0, event, false}));
    return addresses_.size() - 1;
  }

  /** An object recorded inside of a block. */
  void add_inside(std::size_t block, std::size_t offset, std::size_t bytes) {
    const std::uintptr_t begin = addresses_[block] + offset;
    EXPECT_TRUE(blocks_.push_back({{begin, begin + bytes}, 0, 0, 0, false}));
  }

  [[nodiscard]] std::uintptr_t address(std::size_t block) const { return addresses_[block]; }
  std::uintptr_t& word(std::size_t block, std::size_t index) {
    return reinterpret_cast<std::uintptr_t*>(addresses_[block])[index];
  }
  void refer(std::size_t from, std::size_t to) { word(from, used_[from]++) = address(to); }

  std::vector<std::uintptr_t> roots;

  /** For each block that was added: k for kept, L for lost, or its owner's number. */
  std::string fates() {
    Areas areas(blocks_);
    Search search(areas);
    EXPECT_TRUE(areas.is_complete() && search.is_complete());
    const auto begin = reinterpret_cast<std::uintptr_t>(roots.data());
    search.keep_from({begin, begin + roots.size() * sizeof(std::uintptr_t)});
    EXPECT_TRUE(search.find_owners(blocks_));
    std::string text;
    for (const std::uintptr_t block : addresses_) {
      const std::uint32_t area = areas.find(block);
      const Fate fate = search.fate_of(area);
      if (fate == Fate::kKept) text += 'k';
      if (fate == Fate::kLost) text += 'L';
      if (fate == Fate::kWithOwner) {
        const std::uintptr_t owner = areas.at(search.owner_of(area)).range.begin;
        const auto found = std::find(addresses_.rbegin(), addresses_.rend(), owner);
        text += std::to_string(addresses_.rend() - found - 1);
      }
    }
    return text;
  }

 private:
  std::vector<std::uintptr_t> words_;
  std::uintptr_t next_ = reinterpret_cast<std::uintptr_t>(words_.data());
  std::vector<std::uintptr_t> addresses_;
  std::vector<std::size_t> used_ = std::vector<std::size_t>(words_.size());
  Blocks blocks_;
};

TEST(LostBlocks, AreThoseThatNoRootLeadsTo) {
  Heap heap(100);
  for (int i = 0; i < 4; ++i) heap.add(4);
  heap.refer(0, 1);
  heap.refer(1, 2);
  heap.roots = {0, heap.address(0), 1};
  EXPECT_EQ("kkkL", heap.fates());
}

TEST(LostBlocks, AreKeptByAnAddressAnywhereInThem) {
  Heap heap(2000);
  for (int i = 0; i < 3; ++i) heap.add(4);
  const std::size_t large = heap.add(1024);
  heap.add(4);
  heap.roots = {heap.address(0) + 31, heap.address(2) + 1, heap.address(large) + 8191};
  EXPECT_EQ("kLkkL", heap.fates());
}

TEST(LostBlocks, AreNotKeptByAnAddressBehindThem) {
  Heap heap(2000);
  heap.add(4);
  heap.roots = {heap.address(0) + 32, heap.address(0) - 1};
  EXPECT_EQ("L", heap.fates());
}

TEST(LostBlocks, AreNotKeptByAWordThatIsNotAligned) {
  Heap heap(100);
  heap.add(4);
  const std::uintptr_t address = heap.address(0);
  heap.roots = {address << 32, address >> 32};
  EXPECT_EQ("L", heap.fates());
}

TEST(LostBlocks, TakeWhatOnlyTheyReferToWithThem) {
  Heap heap(100);
  for (int i = 0; i < 6; ++i) heap.add(4);
  heap.refer(1, 0);
  heap.refer(1, 2);
  heap.refer(2, 3);
  heap.refer(2, 5);
  heap.refer(3, 4);
  heap.roots = {heap.address(5)};
  EXPECT_EQ("1L111k", heap.fates());
}

TEST(LostBlocks, AreOneOfEachCycleTheOldestOfIt) {
  Heap heap(100);
  for (const std::uint32_t event : {7U, 5U, 6U, 4U, 3U}) heap.add(4, event);
  heap.refer(0, 1);
  heap.refer(1, 2);
  heap.refer(2, 0);
  heap.refer(2, 4);  // behind the cycle, and older
  heap.refer(3, 3);
  EXPECT_EQ("1L1L1", heap.fates());
}

TEST(LostBlocks, CanBeALongListThatBeginsAtItsYoungest) {
  constexpr std::size_t kLength = 200'000;
  Heap heap(2 * kLength);
  for (std::uint32_t i = 0; i < kLength; ++i) heap.add(2, i);
  for (std::size_t i = 1; i < kLength; ++i) heap.refer(i, i - 1);
  heap.roots = {heap.address(0)};
  EXPECT_EQ("k1999991999", heap.fates().substr(0, 11));
}

TEST(LostBlocks, ShareTheirFateWithWhatIsRecordedInsideThem) {
  Heap heap(100);
  heap.add(4);
  heap.add(4);
  heap.add_inside(0, 8, 16);
  heap.add_inside(1, 8, 16);
  heap.roots = {heap.address(0) + 9};
  EXPECT_EQ("kL", heap.fates());
}

TEST(LostBlocks, CanBeNone) {
  Heap heap(1);
  heap.roots = {1, 2, 3};
  EXPECT_EQ("", heap.fates());
}

}  // namespace
