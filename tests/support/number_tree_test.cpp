#include "support/number_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <vector>

namespace {

/** A tree of numbers whose keys the test chooses. */
class Tree {
 public:
  explicit Tree(std::uint32_t numbers) : keys(numbers + 1), nodes_(numbers + 1) {}

  void add(std::uint32_t number) {
    qk::add_to_tree(nodes_.data(), root_, number, before(keys[number]));
  }
  void remove(std::uint32_t number) {
    qk::remove_from_tree(nodes_.data(), root_, number, before(keys[number]));
  }
  [[nodiscard]] std::uint32_t first_from(int key) const {
    return qk::first_not_before(nodes_.data(), root_, before(key));
  }
  [[nodiscard]] std::uint32_t last_below(int key) const {
    return qk::last_before(nodes_.data(), root_, before(key));
  }
  [[nodiscard]] int depth() const { return depth_of(root_); }

  std::vector<int> keys;

 private:
  [[nodiscard]] std::function<bool(std::uint32_t)> before(int key) const {
    return [this, key](std::uint32_t number) { return keys[number] < key; };
  }
  [[nodiscard]] int depth_of(std::uint32_t number) const {  // NOLINT(misc-no-recursion)
    if (number == 0) return 0;
    return 1 + std::max(depth_of(nodes_[number].left), depth_of(nodes_[number].right));
  }

  std::vector<qk::NumberTreeNode> nodes_;
  std::uint32_t root_ = 0;
};

TEST(NumberTree, FindsNothingWhileItIsEmpty) {
  const Tree tree(1);
  EXPECT_EQ(tree.first_from(0), 0U);
  EXPECT_EQ(tree.last_below(0), 0U);
}

TEST(NumberTree, FindsTheNeighborsOfAKey) {
  Tree tree(3);
  tree.keys = {0, 30, 10, 20};
  for (const std::uint32_t number : {1U, 2U, 3U}) tree.add(number);
  EXPECT_EQ(tree.first_from(5), 2U);
  EXPECT_EQ(tree.first_from(10), 2U);
  EXPECT_EQ(tree.first_from(11), 3U);
  EXPECT_EQ(tree.first_from(31), 0U);
  EXPECT_EQ(tree.last_below(10), 0U);
  EXPECT_EQ(tree.last_below(11), 2U);
  EXPECT_EQ(tree.last_below(99), 1U);
}

TEST(NumberTree, StaysFlatWhateverTheOrderOfKeys) {
  constexpr std::uint32_t kNumbers = 100000;
  for (const int order : {1, -1}) {
    Tree tree(kNumbers);
    for (std::uint32_t number = 1; number <= kNumbers; ++number) {
      tree.keys[number] = order * static_cast<int>(number);
      tree.add(number);
    }
    EXPECT_LE(tree.depth(), 60) << order;
  }
}

TEST(NumberTree, AgreesWithASortedMapAfterRandomChanges) {
  constexpr std::uint32_t kNumbers = 300;
  std::mt19937 random(20261122);
  Tree tree(kNumbers);
  for (std::uint32_t i = 1; i <= kNumbers; ++i) tree.keys[i] = static_cast<int>(i * 7919 % 1009);
  std::map<int, std::uint32_t> sorted;
  for (int i = 0; i < 50000; ++i) {
    const auto number = static_cast<std::uint32_t>(random() % kNumbers + 1);
    if (sorted.try_emplace(tree.keys[number], number).second) {
      tree.add(number);
    } else {
      tree.remove(number);
      sorted.erase(tree.keys[number]);
    }
    const int key = static_cast<int>(random() % 1100);
    const auto next = sorted.lower_bound(key);
    ASSERT_EQ(tree.first_from(key), next == sorted.end() ? 0 : next->second);
    ASSERT_EQ(tree.last_below(key), next == sorted.begin() ? 0 : std::prev(next)->second);
  }
}

}  // namespace
