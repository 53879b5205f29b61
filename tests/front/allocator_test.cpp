#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <memory_resource>
#include <new>
#include <queue>
#include <scoped_allocator>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"
#include "tests/front/container_kinds.h"
#include "tests/kit/ledger.h"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::line_above;
using kit::Scene;

template <class T>
using Vector = std::vector<T, qk::allocator<T>>;
using Text = std::basic_string<char, std::char_traits<char>, qk::allocator<char>>;

using Traits = std::allocator_traits<qk::allocator<int>>;
static_assert(!Traits::propagate_on_container_copy_assignment::value);
static_assert(Traits::propagate_on_container_move_assignment::value);
static_assert(Traits::propagate_on_container_swap::value);
static_assert(!Traits::is_always_equal::value);
static_assert(std::is_same_v<Traits::rebind_alloc<char>, qk::allocator<char>>);
static_assert(std::is_convertible_v<const qk::Handle&, qk::allocator<int>>);
static_assert(!std::is_convertible_v<int, qk::allocator<int>>,
              "a number would be taken as a container's size");
static_assert(std::is_constructible_v<qk::allocator<int>, int>);
static_assert(std::is_nothrow_default_constructible_v<qk::allocator<int>>);
static_assert(std::is_nothrow_default_constructible_v<Vector<int>>);
static_assert(std::is_nothrow_move_assignable_v<Vector<int>>);

const std::string kLong(50, 'x');

TEST(AllocatorOfAContainer, AllocatesAtTheLocationOfTheContainer) {
  Scene scene(Environment{"DEBUG", "", ""});
  const qk::Handle pool;
  kit::make_arrays(pool.number());
  scene.skip_log();
  std::string made;
  {
    Vector<int> numbers(pool);
    made = line_above();
    EXPECT_EQ(scene.log(), "");
    numbers.reserve(10);
    EXPECT_EQ(scene.log(), "   qk_mem_imalloc:        3 [p1] M 40 " + made + "\n");
    scene.skip_log();
  }
  EXPECT_EQ(scene.log(), "   qk_mem_ifree:          3 [p1] F " + made + "; M 40 " + made + "\n");
}

/** Two handles. Misuse would be logged, and the log must stay empty. */
class Allocator : public ::testing::Test {
 protected:
  Allocator() { scene_.skip_log(); }
  ~Allocator() override { EXPECT_EQ(scene_.log(), ""); }

  Scene scene_{"EXCEPTIONS"};
  qk::Handle one_;
  qk::Handle two_;
};

TEST_F(Allocator, ServesEveryContainer) {
  containers::for_each_kind<qk::allocator>([&]<class Container>() {
    containers::exercise<Container>(qk::allocator<typename Container::value_type>(one_),
                                    [&] { EXPECT_GE(one_.size(), 2U * 300 / 8); });
    EXPECT_EQ(one_.size(), 0U);
  });
}

TEST_F(Allocator, ServesEveryContainerFromBlocks) {
  for (const char* options : {"BLOCKMGMT", "BLOCKMGMT BLOCKFREE"}) {
    qk::Handle arena(options);
    containers::for_each_kind<qk::allocator>([&]<class Container>() {
      containers::exercise<Container>(qk::allocator<typename Container::value_type>(arena), [] {});
      EXPECT_EQ(arena.clear(), 0);
    });
  }
}

TEST_F(Allocator, ServesAdaptors) {
  std::priority_queue<int, Vector<int>> order{qk::allocator<int>(one_)};
  std::queue<int, std::deque<int, qk::allocator<int>>> queue{qk::allocator<int>(two_)};
  for (int i = 0; i < 100; ++i) {
    order.push(i);
    queue.push(i);
  }
  EXPECT_GE(one_.size(), 400U);
  EXPECT_GE(two_.size(), 400U);
}

TEST_F(Allocator, ServesSharedObjects) {
  auto number = std::allocate_shared<std::array<int, 100>>(qk::allocator<int>(one_));
  EXPECT_GE(one_.size(), 400U);
  const std::weak_ptr<std::array<int, 100>> seen = number;
  number.reset();
  EXPECT_GE(one_.size(), 400U) << "the weak pointer keeps the memory";
}

TEST_F(Allocator, CanBeCreatedFromAHandlesNumber) {
  Vector<int> numbers(qk::allocator<int>(one_.number()));
  numbers.resize(10);
  EXPECT_EQ(one_.size(), 40U);
  EXPECT_EQ(numbers.get_allocator().handle(), one_.number());
}

TEST_F(Allocator, IsEqualToOthersOfItsHandleForAnyType) {
  const qk::allocator<int> one(one_);
  const qk::allocator<char> same(one);
  const qk::allocator<int> other(two_);
  EXPECT_TRUE(one == one);
  EXPECT_TRUE(one == same);
  EXPECT_FALSE(one != same);
  EXPECT_FALSE(one == other);
  EXPECT_TRUE(same != other);
}

TEST_F(Allocator, KeepsTheSourcesHandleInACopy) {
  const Vector<int> source(10, 7, one_);
  const Vector<int> copy(source);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(one_.size(), 80U);
  const Vector<int> elsewhere(source, two_);
  EXPECT_EQ(two_.size(), 40U);
}

TEST_F(Allocator, KeepsTheTargetsHandleOnCopyAssignment) {
  const Vector<int> source(10, 7, one_);
  Vector<int> result(two_);
  result = source;
  EXPECT_EQ(result.get_allocator().handle(), two_.number());
  EXPECT_EQ(one_.size(), 40U);
  EXPECT_EQ(two_.size(), 40U);
}

TEST_F(Allocator, MovesWithTheMemoryOnMoveAssignment) {
  Vector<Text> source(one_);
  source.emplace_back(kLong, qk::allocator<char>(one_));
  const std::size_t bytes = one_.size();
  const Text* const first = source.data();
  Vector<Text> result(3, Text("short", qk::allocator<char>(two_)), two_);
  result = std::move(source);
  EXPECT_EQ(result.data(), first);
  EXPECT_EQ(result.get_allocator().handle(), one_.number());
  EXPECT_EQ(one_.size(), bytes);
  EXPECT_EQ(two_.size(), 0U);
}

TEST_F(Allocator, MovesWithTheMemoryOnSwap) {
  std::list<int, qk::allocator<int>> ten(10, 1, one_);
  std::list<int, qk::allocator<int>> twenty(20, 2, two_);
  const std::size_t bytes = one_.size();
  std::swap(ten, twenty);
  EXPECT_EQ(ten.size(), 20U);
  EXPECT_EQ(ten.get_allocator().handle(), two_.number());
  EXPECT_EQ(one_.size(), bytes);
  twenty.clear();
  EXPECT_EQ(one_.size(), 0U);
}

TEST_F(Allocator, CanMoveElementsOneByOneToAnotherHandle) {
  Vector<std::unique_ptr<int>> source(one_);
  source.push_back(std::make_unique<int>(42));
  const Vector<std::unique_ptr<int>> result(std::move(source), two_);
  EXPECT_EQ(*result[0], 42);
  EXPECT_EQ(two_.size(), 8U);
}

TEST_F(Allocator, ReachesElementsIfItIsScoped) {
  std::vector<Text, std::scoped_allocator_adaptor<qk::allocator<Text>>> texts{
      qk::allocator<Text>(one_)};
  texts.emplace_back(kLong);
  EXPECT_EQ(texts[0].get_allocator().handle(), one_.number());
  EXPECT_EQ(one_.size(), sizeof(Text) + 51);
}

TEST_F(Allocator, HasTheDataHandleIfItIsCreatedFromNothing) {
  EXPECT_EQ(qk::allocator<int>().handle(), QK_MEM_DATA_HANDLE);
  const Vector<int> numbers(10, 7);
  EXPECT_EQ(numbers.get_allocator().handle(), QK_MEM_DATA_HANDLE);
  EXPECT_EQ(qk_mem_is_recorded(QK_MEM_DATA_HANDLE, numbers.data(), "lib/a.c", 1), 1);
}

TEST_F(Allocator, HasTheDataHandleInTheResultOfSubstr) {
  Text text(kLong, qk::allocator<char>(one_));
  EXPECT_EQ(text.substr(10).get_allocator().handle(), QK_MEM_DATA_HANDLE);
  EXPECT_EQ(one_.size(), 51U);
  text = text.substr(10);
  EXPECT_EQ(text.size(), 40U);
  EXPECT_EQ(text.get_allocator().handle(), QK_MEM_DATA_HANDLE);
  EXPECT_EQ(one_.size(), 0U);
}

TEST_F(Allocator, KeepsTheHandleOfAStringInItsSums) {
  const Text text(kLong, qk::allocator<char>(one_));
  for (const Text& sum : {text + text, text + "end", "begin" + text, text + 'c', 'c' + text}) {
    EXPECT_EQ(sum.get_allocator().handle(), one_.number());
  }
}

TEST_F(Allocator, GivesTheDataHandleToElementsThatAreAdded) {
  Vector<Vector<int>> rows(one_);
  rows.resize(3);
  rows[2].resize(100);
  EXPECT_EQ(rows[2].get_allocator().handle(), QK_MEM_DATA_HANDLE);
  EXPECT_EQ(one_.size(), 3 * sizeof(Vector<int>));
  rows.emplace_back(one_);
  EXPECT_EQ(rows[3].get_allocator().handle(), one_.number());
}

TEST_F(Allocator, ServesAMapOfTexts) {
  using Pair = std::pair<const Text, Text>;
  {
    std::map<Text, Text, std::less<>, qk::allocator<Pair>> names(one_);
    names["key"] = Text(kLong, qk::allocator<char>(one_));
    EXPECT_EQ(names["key"].get_allocator().handle(), one_.number());
    EXPECT_EQ(names["other"].get_allocator().handle(), QK_MEM_DATA_HANDLE);
    EXPECT_GE(one_.size(), 2 * sizeof(Pair) + 51);
  }
  EXPECT_EQ(one_.size(), 0U);
}

struct alignas(64) Line {
  char bytes[64];
};

TEST_F(Allocator, HonoursTheAlignmentOfItsElements) {
  const qk::Handle arena("BLOCKMGMT");
  for (const qk::Handle* handle : {&std::as_const(one_), &arena}) {
    Vector<Line> lines(*handle);
    for (int i = 0; i < 20; ++i) {
      lines.emplace_back();
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(lines.data()) % 64, 0U);
    }
    std::list<Line, qk::allocator<Line>> list(5, Line{}, *handle);
    for (const Line& line : list) EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&line) % 64, 0U);
  }
  EXPECT_EQ(one_.size(), 0U);
}

TEST_F(Allocator, RefusesANumberOfElementsThatOverflows) {
  qk::allocator<int> allocator(one_);
  const volatile std::size_t too_many = std::numeric_limits<std::size_t>::max() / 4 + 1;
  EXPECT_THROW(static_cast<void>(allocator.allocate(too_many)), std::bad_array_new_length);
  EXPECT_EQ(one_.size(), 0U);
}

TEST_F(Allocator, AcceptsZeroElements) {
  qk::allocator<int> allocator(one_);
  allocator.deallocate(allocator.allocate(0), 0);
  EXPECT_EQ(one_.size(), 0U);
}

}  // namespace
