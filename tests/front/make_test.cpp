#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "core/registry.h"
#include "qkmem/qkmem.hpp"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

namespace {

using kit::data_of;
using kit::Environment;
using kit::line_above;
using kit::Scene;

/** Records its destruction, and can fail to be constructed. */
class Part {
 public:
  Part() : Part("part") {}
  explicit Part(std::string name, bool fails = false) : name_(std::move(name)) {
    if (fails) throw std::runtime_error("no such part");
    ++alive;
  }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part() {
    --alive;
    ends += name_ + " ";
  }

  static inline int alive = 0;
  static inline std::string ends;

 private:
  std::string name_;
};

/** Handle 3. Its pointer arrays exist already, so that each event is logged by itself. */
class Make : public ::testing::Test {
 protected:
  Make() {
    kit::make_arrays(pool_.number());
    skip_all();
  }

  void skip_all() {
    scene_.skip_log();
    scene_.skip_trace();
  }

  [[nodiscard]] std::string held() const { return data_of(pool_.number()); }

  Scene scene_{Environment{"DEBUG", "DB", ""}};
  qk::Handle pool_{"", "AB"};
};

TEST_F(Make, RegistersAnObjectThatDestroyDeregisters) {
  int* const number = qk::make<int>(pool_, 42);
  const std::string made = line_above();
  EXPECT_EQ(*number, 42);
  EXPECT_EQ(scene_.log(), "   qk_mem_iregister:      3 [p1] W 4 " + made +
                              "\n"
                              "   qk_mem_tracker:        3 [p2] T 16 " +
                              made + "\n");
  EXPECT_EQ(held(), "1 for 4");
  skip_all();
  qk::destroy(pool_, number);
  const std::string destroyed = line_above();
  EXPECT_EQ(scene_.log(), "   qk_mem_ideregister:          3 [p1] \x01 " + destroyed + "; W 4 " +
                              made + "\n   qk_mem_tracker:   3 [p2] E " + destroyed + "; T 16 " +
                              made + "\n");
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Make, RegistersAnArrayWithItsBytes) {
  std::uint32_t* const numbers = qk::make_array<std::uint32_t>(pool_, 10);
  const std::string made = line_above();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(numbers[i], 0U);
  EXPECT_EQ(scene_.log(), "   qk_mem_iregister:      3 [p1] J 1/40 " + made +
                              "\n"
                              "   qk_mem_tracker:        3 [p2] T 16 " +
                              made + "\n");
  skip_all();
  qk::destroy<std::uint32_t[]>(pool_, numbers);
  const std::string destroyed = line_above();
  EXPECT_EQ(scene_.log(), "   qk_mem_ideregister:          3 [p1] \x02 " + destroyed + "; J 1/40 " +
                              made + "\n   qk_mem_tracker:   3 [p2] E " + destroyed + "; T 16 " +
                              made + "\n");
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Make, AcceptsAHandlesNumber) {
  int* const number = qk::make<int>(pool_.number(), 42);
  EXPECT_EQ(held(), "1 for 4");
  qk::destroy(pool_.number(), number);
  EXPECT_EQ(pool_.size(), 0U);
}

struct Pair {
  Pair(std::unique_ptr<int> one, std::string& other) : first(std::move(one)), second(other) {}
  std::unique_ptr<int> first;
  std::string& second;
};

TEST_F(Make, ForwardsItsArguments) {
  std::string text = "text";
  auto* const pair = qk::make<Pair>(pool_, std::make_unique<int>(42), text);
  EXPECT_EQ(*pair->first, 42);
  EXPECT_EQ(&pair->second, &text);
  qk::destroy(pool_, pair);
}

struct Point {
  int x;
  int y;
};

TEST_F(Make, FillsAggregatesInTheirOrder) {
  auto* const point = qk::make<Point>(pool_, 3, 4);
  EXPECT_EQ(point->x, 3);
  EXPECT_EQ(point->y, 4);
  qk::destroy(pool_, point);
  auto* const origin = qk::make<Point>(pool_);
  EXPECT_EQ(origin->x, 0);
  qk::destroy(pool_, origin);
}

TEST_F(Make, ConvertsNumbersForTheMembersOfAggregates) {
  auto* const point = qk::make<Point>(pool_, 3.75, 4LL);
  EXPECT_EQ(point->x, 3);
  EXPECT_EQ(point->y, 4);
  qk::destroy(pool_, point);
}

TEST_F(Make, MakesConstantsToo) {
  const Part* const part = qk::make<const Part>(pool_, "constant");
  skip_all();
  qk::destroy(pool_, part);
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
  EXPECT_EQ(Part::ends, "constant ");
}

TEST_F(Make, DestroysEachElementOfAnArray) {
  Part* const parts = qk::make_array<Part>(pool_, 3);
  EXPECT_EQ(Part::alive, 3);
  EXPECT_EQ(held(), "1 for " + std::to_string(3 * sizeof(Part)));
  qk::destroy<Part[]>(pool_, parts);
  EXPECT_EQ(Part::ends, "part part part ");
}

TEST_F(Make, WarnsOfAnArrayWithoutElementsAndMakesIt) {
  Part* const parts = qk::make_array<Part>(pool_, 0);
  const std::string made = line_above();
  EXPECT_NE(parts, nullptr);
  EXPECT_EQ(scene_.log("qk_mem_iregister"), "   qk_mem_iregister: WARNING: register of 0 at " +
                                                made + "\n   qk_mem_iregister:      3 [p1] J 1/0 " +
                                                made + "\n");
  qk::destroy<Part[]>(pool_, parts);
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Make, LeavesNothingWhenAConstructorThrows) {
  EXPECT_THROW(static_cast<void>(qk::make<Part>(pool_, "part", true)), std::runtime_error);
  EXPECT_EQ(scene_.log(), "");
  EXPECT_EQ(scene_.trace(), "");
  EXPECT_EQ(held(), "0 for 0");
  EXPECT_EQ(Part::ends, "");
}

/** The constructor of the third one throws. */
struct Third {
  Third() : number(++made) {
    if (made == 3) throw std::runtime_error("no third");
  }
  ~Third() { --made; }
  static inline int made = 0;
  int number;
};

TEST_F(Make, LeavesNothingWhenAnElementThrows) {
  EXPECT_THROW(static_cast<void>(qk::make_array<Third>(pool_, 5)), std::runtime_error);
  EXPECT_EQ(Third::made, 1) << "two are destroyed; the third was never constructed";
  EXPECT_EQ(scene_.log(), "");
  EXPECT_EQ(held(), "0 for 0");
}

TEST_F(Make, LeavesNothingWhenMemoryRunsOut) {
  for (const int request : {1, 2}) {
    kit::fail_request(request);
    EXPECT_THROW(static_cast<void>(qk::make<Point>(pool_, 3, 4)), std::bad_alloc) << request;
    EXPECT_TRUE(kit::has_failed());
  }
  EXPECT_EQ(scene_.log(), "");
  EXPECT_EQ(held(), "0 for 0");
}

TEST_F(Make, RefusesAnArrayWhoseSizeOverflows) {
  const volatile std::size_t too_many = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_THROW(static_cast<void>(qk::make_array<Point>(pool_, too_many)), std::bad_alloc);
  EXPECT_EQ(held(), "0 for 0");
}

TEST_F(Make, WarnsIfDestroyGetsAnotherType) {
  int* const number = qk::make<int>(pool_, 42);
  const std::string made = line_above();
  skip_all();
  qk::destroy(pool_, reinterpret_cast<unsigned*>(number));
  const std::string destroyed = line_above();
  const std::string warning =
      "   qk_mem_ideregister: WARNING: deregister of object with invalid typename 'j' at " +
      destroyed + " (allocated as 'i' at " + made + ")\n";
  EXPECT_EQ(scene_.log().substr(0, warning.size()), warning);
}

TEST_F(Make, LetsAnUnknownObjectBeDestroyedWithAWarning) {
  qk::destroy(pool_, new Part("stranger"));
  const std::string destroyed = line_above();
  const std::string warning =
      "   qk_mem_ideregister: WARNING:   3 [p1] ptr not found at " + destroyed + "\n";
  EXPECT_EQ(scene_.log(), warning + warning);
  EXPECT_EQ(Part::ends, "stranger ");
}

TEST_F(Make, WarnsOfNullAndDestroysNothing) {
  qk::destroy(pool_, static_cast<Part*>(nullptr));
  const std::string first = line_above();
  qk::destroy<Part[]>(pool_, nullptr);
  const std::string second = line_above();
  EXPECT_EQ(scene_.log(), "   qk_mem_ideregister: WARNING: deregister of NULL pointer at " + first +
                              "\n   qk_mem_ideregister: WARNING: deregister of NULL pointer at " +
                              second + "\n");
}

}  // namespace
