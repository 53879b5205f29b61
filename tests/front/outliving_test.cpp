#include <gtest/gtest.h>

#include <cstddef>
#include <list>
#include <memory_resource>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"
#include "tests/kit/ledger.h"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

/** What a program keeps of a handle after the handle's end, mostly after another has its number. */
namespace {

using kit::line_above;
using kit::Scene;

template <class T>
using Vector = std::vector<T, qk::allocator<T>>;

/** Records its destruction. */
struct Part {
  Part() { ++alive; }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part() { --alive; }

  static inline int alive = 0;
  long value = 0;
};

/** Handle 3. Errors are logged. */
class Outliving : public ::testing::Test {
 protected:
  Outliving() { pool_.emplace("", "ON"); }

  /** Ends handle 3, and creates another handle 3 with 100 bytes. */
  void replace_handle() {
    pool_.reset();
    next_.emplace("", "NX");
    ASSERT_EQ(next_->number(), 3);
    static_cast<void>(qk_mem_malloc(3, 100));
    scene_.skip_log();
  }

  /** The line about a call on handle 3 from the line `made`. */
  static std::string error(const std::string& call, const std::string& made) {
    return "   qk_mem_i" + call + ": ERROR: " + call + " on deleted handle 3 at " + made + "\n";
  }

  void expect_next_untouched() {
    EXPECT_EQ(kit::data_of(3), "1 for 100");
    EXPECT_EQ(qk_mem_error(), 5566);
  }

  Scene scene_{"EXCEPTIONS"};
  std::optional<qk::Handle> pool_;
  std::optional<qk::Handle> next_;
};

TEST_F(Outliving, ContainerFreesNothingAndLogsOneError) {
  std::optional<Vector<int>> numbers = Vector<int>(*pool_);
  const std::string made = line_above();
  numbers->resize(10);
  replace_handle();
  numbers.reset();
  EXPECT_EQ(scene_.log(), error("free", made));
  expect_next_untouched();
}

TEST_F(Outliving, ContainerIsRefusedWithoutANewHandleToo) {
  std::optional<Vector<int>> numbers = Vector<int>(*pool_);
  const std::string made = line_above();
  numbers->resize(10);
  pool_.reset();
  scene_.skip_log();
  numbers.reset();
  EXPECT_EQ(scene_.log(), error("free", made));
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST_F(Outliving, ContainerGetsNoMemoryOfANewHandle) {
  Vector<int> numbers(*pool_);
  const std::string made = line_above();
  replace_handle();
  EXPECT_THROW(numbers.resize(10), std::bad_alloc);
  EXPECT_EQ(scene_.log(), error("malloc", made));
  EXPECT_TRUE(numbers.empty());
  expect_next_untouched();
}

TEST_F(Outliving, OveralignedElementsAreNotLookedAt) {
  struct alignas(64) Wide {
    char bytes[64];
  };
  std::optional<Vector<Wide>> wide = Vector<Wide>(*pool_);
  const std::string made = line_above();
  wide->resize(2);
  replace_handle();
  wide.reset();
  EXPECT_EQ(scene_.log(), error("free", made));
  expect_next_untouched();
}

TEST_F(Outliving, MemoryResourceServesNothing) {
  qk::memory_resource resource(*pool_);
  const std::string made = line_above();
  void* const memory = resource.allocate(50);
  replace_handle();
  resource.deallocate(memory, 50);
  EXPECT_EQ(scene_.log(), error("free", made));
  scene_.skip_log();
  EXPECT_THROW(static_cast<void>(resource.allocate(50)), std::bad_alloc);
  EXPECT_EQ(scene_.log(), error("malloc", made));
  expect_next_untouched();
}

TEST_F(Outliving, UniqueObjectIsNotDestroyedTwice) {
  auto part = qk::make_unique<Part>(*pool_);
  const std::string made = line_above();
  replace_handle();
  EXPECT_EQ(Part::alive, 0);
  part.reset();
  EXPECT_EQ(Part::alive, 0);
  EXPECT_EQ(scene_.log(), error("deregister", made));
  expect_next_untouched();
}

TEST_F(Outliving, UniqueArrayIsNotDestroyedTwice) {
  auto parts = qk::make_unique<Part[]>(*pool_, 3);
  const std::string made = line_above();
  replace_handle();
  parts.reset();
  EXPECT_EQ(Part::alive, 0);
  EXPECT_EQ(scene_.log(), error("deregister", made));
  expect_next_untouched();
}

TEST_F(Outliving, OnRegistersNothingOnANewHandle) {
  const qk::On gone = *pool_;
  replace_handle();
  {
    const auto part = qk::make_unique<Part>(qk::On(gone));
    EXPECT_EQ(Part::alive, 1);
  }
  EXPECT_EQ(Part::alive, 0) << "it belongs to the program";
  const std::string at = std::string(__FILE__).substr(std::string(__FILE__).rfind('/') + 1) + ":" +
                         std::to_string(gone.line());
  EXPECT_EQ(scene_.log(), error("register", at));
  expect_next_untouched();
}

TEST(HandleDeletedByItsNumber, IsNotDeletedTwice) {
  Scene scene("EXCEPTIONS");
  std::string made;
  {
    const qk::Handle pool("", "ON");
    made = line_above();
    EXPECT_EQ(qk_mem_del_handle(pool.number()), 0);
    EXPECT_EQ(qk_mem_new_handle("", "NX"), pool.number());
    scene.skip_log();
  }
  EXPECT_EQ(scene.log(),
            "   qk_mem_idel_handle: ERROR: del_handle on deleted handle 3 at " + made + "\n");
  EXPECT_EQ(kit::data_of(3), "0 for 0") << "the new handle exists";
}

TEST(HandleDeletedByItsNumber, DoesNotClearAnother) {
  Scene scene("EXCEPTIONS");
  qk::Handle arena("BLOCKMGMT");
  EXPECT_EQ(qk_mem_del_handle(arena.number()), 0);
  EXPECT_EQ(qk_mem_new_handle("BLOCKMGMT", ""), arena.number());
  auto* const number = static_cast<int*>(qk_mem_malloc(arena.number(), sizeof(int)));
  scene.skip_log();
  EXPECT_EQ(arena.clear(), 5566);
  const std::string cleared = line_above();
  EXPECT_EQ(scene.log(), "   qk_mem_iclear_handle: ERROR: clear_handle on deleted handle 3 at " +
                             cleared + "\n");
  EXPECT_NE(static_cast<int*>(qk_mem_malloc(arena.number(), sizeof(int))), number);
}

TEST(ErrorOfADeletedHandle, FollowsTheSwitchesOfTheCall) {
  Scene scene("EXCEPTIONS='not qk_ifree'");
  std::optional<qk::Handle> pool(std::in_place);
  qk::allocator<int> allocator(*pool);
  const std::string made = line_above();
  int* const numbers = allocator.allocate(10);
  pool.reset();
  scene.skip_log();
  allocator.deallocate(numbers, 10);
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_THROW(static_cast<void>(allocator.allocate(10)), std::bad_alloc);
  EXPECT_EQ(scene.log(), "   qk_mem_imalloc: ERROR: malloc on deleted handle 3 at " + made + "\n");
}

TEST(Allocators, DifferIfTheirHandlesHadTheSameNumber) {
  const Scene scene("");
  std::optional<qk::Handle> pool(std::in_place);
  const qk::allocator<int> allocator(*pool);
  const qk::memory_resource resource(*pool);
  EXPECT_EQ(allocator, qk::allocator<char>(*pool));
  EXPECT_EQ(allocator, qk::allocator<int>(pool->number()));
  EXPECT_EQ(resource, qk::memory_resource(*pool));
  EXPECT_EQ(resource, qk::memory_resource(pool->number()));
  const int number = pool->number();
  pool.reset();
  const qk::Handle next;
  EXPECT_EQ(next.number(), number);
  EXPECT_NE(allocator, qk::allocator<int>(next));
  EXPECT_NE(resource, qk::memory_resource(next));
}

TEST(MovedHandle, StaysTheOneOfItsContainers) {
  const Scene scene("");
  qk::Handle first;
  Vector<int> numbers(first);
  numbers.resize(10);
  const qk::Handle second(std::move(first));
  qk::Handle third;
  third = qk::Handle();
  numbers.resize(100);
  EXPECT_EQ(second.size(), 400U);
  numbers = Vector<int>(second);
  EXPECT_EQ(second.size(), 0U);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(ReleasedHandle, StaysTheOneOfItsContainers) {
  const Scene scene("");
  qk::Handle pool;
  Vector<int> numbers(pool);
  const int number = pool.release();
  numbers.resize(10);
  EXPECT_EQ(kit::data_of(number), "1 for 40");
  EXPECT_EQ(pool.generation(), 0U);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(Generation, IsKnownOfLiveHandlesOnly) {
  const Scene scene("");
  qk::Handle pool;
  const std::uint32_t generation = pool.generation();
  EXPECT_NE(generation, 0U);
  EXPECT_EQ(qk_mem_generation(pool.number()), generation);
  EXPECT_NE(qk_mem_generation(QK_MEM_DATA_HANDLE), generation);
  const int number = pool.number();
  pool = qk::Handle("NONSENSE");
  EXPECT_EQ(pool.generation(), 0U);
  const int error = qk_mem_error();
  EXPECT_EQ(qk_mem_generation(number), 0U);
  EXPECT_EQ(qk_mem_generation(-1), 0U);
  EXPECT_EQ(qk_mem_error(), error);
}

TEST(NumberWithoutAGeneration, MeansWhicheverHandleHasIt) {
  const Scene scene("");
  std::optional<qk::Handle> pool(std::in_place);
  Vector<int> numbers(qk::allocator<int>(pool->number()));
  pool.reset();
  const qk::Handle next;
  numbers.resize(10);
  EXPECT_EQ(next.size(), 40U);
  EXPECT_EQ(qk_mem_error(), 0);
}

}  // namespace
