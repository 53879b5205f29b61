#include <gtest/gtest.h>

#include <map>
#include <memory_resource>
#include <queue>
#include <stack>
#include <string>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"
#include "tests/front/container_kinds.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Scene;

TEST(EveryPmrContainer, WorksOnAHandleAndLeavesNothing) {
  Scene scene("EXCEPTIONS");
  const qk::Handle pool("MULTITHREADED");
  scene.skip_log();
  qk::memory_resource resource(pool);
  containers::for_each_kind<std::pmr::polymorphic_allocator>([&]<class Container>() {
    containers::exercise<Container>(&resource, [&] { EXPECT_GE(pool.size(), 2U * 300 / 8); });
    EXPECT_EQ(pool.size(), 0U);
  });
  EXPECT_EQ(scene.log(), "");
}

TEST(EveryPmrContainer, WorksInAnArenaThatIsClearedAfterwards) {
  Scene scene("EXCEPTIONS");
  qk::Handle arena("BLOCKMGMT BLOCKSIZE=4096");
  scene.skip_log();
  qk::memory_resource resource(arena);
  containers::for_each_kind<std::pmr::polymorphic_allocator>([&]<class Container>() {
    containers::exercise<Container>(&resource, [] {});
    EXPECT_EQ(arena.clear(), 0);
  });
  EXPECT_EQ(scene.log(), "");
}

TEST(EveryPmrContainer, WorksInBlocksUnderBlockfree) {
  Scene scene("EXCEPTIONS");
  const qk::Handle arena("BLOCKMGMT BLOCKFREE");
  scene.skip_log();
  qk::memory_resource resource(arena);
  containers::for_each_kind<std::pmr::polymorphic_allocator>(
      [&]<class Container>() { containers::exercise<Container>(&resource, [] {}); });
  EXPECT_EQ(scene.log(), "");
}

/** Two handles and their resources. */
class MovedContainer : public ::testing::Test {
 protected:
  Scene scene_{"EXCEPTIONS"};
  qk::Handle one_;
  qk::Handle two_;
  qk::memory_resource on_one_{one_};
  qk::memory_resource on_two_{two_};
};

TEST_F(MovedContainer, KeepsItsHandleOnMoveConstruction) {
  std::pmr::vector<int> source(100, 7, &on_one_);
  const std::pmr::vector<int> result(std::move(source));
  EXPECT_EQ(one_.size(), 400U);
  EXPECT_EQ(result.get_allocator().resource(), &on_one_);
}

TEST_F(MovedContainer, IsCopiedToTheTargetsHandleOnMoveAssignment) {
  std::pmr::vector<std::pmr::string> source(&on_one_);
  source.emplace_back("a text that is too long to fit in the string itself");
  std::pmr::vector<std::pmr::string> result(&on_two_);
  result = std::move(source);
  EXPECT_EQ(result.get_allocator().resource(), &on_two_);
  EXPECT_EQ(result[0].get_allocator().resource(), &on_two_);
  EXPECT_GT(two_.size(), 50U);
  source.clear();  // NOLINT(bugprone-use-after-move): clear() makes it usable
  source.shrink_to_fit();
  EXPECT_EQ(one_.size(), 0U);
}

TEST_F(MovedContainer, KeepsItsMemoryIfBothHaveTheSameHandle) {
  qk::memory_resource also_on_one(one_);
  std::pmr::vector<int> source(100, 7, &on_one_);
  const int* const first = source.data();
  std::pmr::vector<int> result(&also_on_one);
  result = std::move(source);
  EXPECT_EQ(result.data(), first);
  EXPECT_EQ(one_.size(), 400U);
}

TEST_F(MovedContainer, CanMoveToAnArenaAndBack) {
  const qk::Handle arena("BLOCKMGMT");
  qk::memory_resource in_arena(arena);
  std::pmr::map<std::pmr::string, std::pmr::vector<int>> source(&on_one_);
  for (int i = 0; i < 50; ++i) source[std::pmr::string(40, 'a') += std::to_string(i)].resize(20);
  {
    std::pmr::map<std::pmr::string, std::pmr::vector<int>> result(&in_arena);
    result = std::move(source);
    source.clear();  // NOLINT(bugprone-use-after-move): clear() makes it usable
    EXPECT_EQ(one_.size(), 0U);
    EXPECT_EQ(result.size(), 50U);
    source = std::move(result);
  }
  EXPECT_EQ(source.size(), 50U);
  EXPECT_GT(one_.size(), 50U * 80);
}

TEST_F(MovedContainer, LetsAnAdaptorUseItsHandle) {
  std::stack<int, std::pmr::vector<int>> stack(&on_one_);
  std::queue<int, std::pmr::deque<int>> queue(&on_two_);
  std::priority_queue<int, std::pmr::vector<int>> order(&on_two_);
  for (int i = 0; i < 100; ++i) {
    stack.push(i);
    queue.push(i);
    order.push(i);
  }
  EXPECT_EQ(stack.top(), 99);
  EXPECT_EQ(order.top(), 99);
  EXPECT_GE(one_.size(), 400U);
  EXPECT_GE(two_.size(), 800U);
}

}  // namespace
