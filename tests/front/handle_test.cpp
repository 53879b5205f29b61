#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/registry.h"
#include "qkmem/qkmem.hpp"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::handle_of;
using kit::line_above;
using kit::Scene;

static_assert(!std::is_copy_constructible_v<qk::Handle>);
static_assert(!std::is_copy_assignable_v<qk::Handle>);
static_assert(std::is_nothrow_move_constructible_v<qk::Handle>);
static_assert(std::is_nothrow_move_assignable_v<qk::Handle>);
static_assert(!std::is_convertible_v<qk::Handle, int>);
static_assert(!std::is_convertible_v<const char*, qk::Handle>);

bool exists(int number) { return Qk_mem_handles[number - 1] != nullptr; }

/** A started library with an empty log. */
class Handle : public ::testing::Test {
 protected:
  Handle() {
    qk_mem_init();
    scene_.skip_log();
  }

  Scene scene_{"DEBUG='not global'"};
};

TEST_F(Handle, IsLoggedWithTheLocationOfItsConstruction) {
  std::string made;
  {
    const qk::Handle pool("AUTOFREE", "ab");
    made = line_above();
    EXPECT_EQ(pool.number(), 3);
    EXPECT_EQ(handle_of(3).autofree, 'a');
    EXPECT_STREQ(handle_of(3).tag->name, "AB");
    EXPECT_EQ(scene_.log("qk_mem_inew_handle"),
              "   qk_mem_inew_handle:    3 N D A  " + made + "\n");
    EXPECT_EQ(scene_.log("qk_mem_idel_handle"), "");
  }
  const std::string log = scene_.log();
  EXPECT_TRUE(log.ends_with("   qk_mem_idel_handle:    3 D " + made + "; " + made + "\n")) << log;
  EXPECT_FALSE(exists(3));
}

TEST_F(Handle, IsAPlainDataHandleWithoutOptions) {
  const qk::Handle pool;
  EXPECT_EQ(handle_of(pool.number()).type, 'D');
  EXPECT_EQ(handle_of(pool.number()).tag, &Qk_mem_global_tag);
  EXPECT_TRUE(pool);
}

TEST_F(Handle, IsEmptyIfItCannotBeCreated) {
  {
    const qk::Handle pool("NONSENSE");
    EXPECT_FALSE(pool);
    EXPECT_EQ(pool.number(), 0);
    EXPECT_EQ(qk_mem_error(), 11102);
    scene_.skip_log();
  }
  EXPECT_EQ(scene_.log(), "") << "nothing is deleted";
}

TEST_F(Handle, CanBeMoved) {
  qk::Handle first;
  const int number = first.number();
  const qk::Handle second(std::move(first));
  EXPECT_EQ(second.number(), number);
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): it is empty
  EXPECT_TRUE(exists(number));
}

TEST_F(Handle, IsDeletedByTheObjectThatItWasMovedTo) {
  int number = 0;
  {
    std::vector<qk::Handle> pools;
    for (int i = 0; i < 10; ++i) pools.emplace_back("", "AB");
    number = pools.back().number();
    EXPECT_EQ(number, 12);
    EXPECT_EQ(Qk_mem_num_handles, 12);
  }
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

TEST_F(Handle, DeletesItsOldHandleOnMoveAssignment) {
  qk::Handle first;
  qk::Handle second;
  const int number = first.number();
  const int number_of_second = second.number();
  first = std::move(second);
  EXPECT_FALSE(exists(number));
  EXPECT_EQ(first.number(), number_of_second);
  EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): it is empty
}

TEST_F(Handle, SurvivesAMoveToItself) {
  qk::Handle pool;
  const int number = pool.number();
  qk::Handle& same = pool;
  pool = std::move(same);
  EXPECT_EQ(pool.number(), number);
  EXPECT_TRUE(exists(number));
}

TEST_F(Handle, CanBeReleased) {
  int number = 0;
  {
    qk::Handle pool;
    number = pool.release();
    EXPECT_FALSE(pool);
  }
  EXPECT_TRUE(exists(number));
  EXPECT_EQ(qk_mem_del_handle(number), 0);
}

TEST_F(Handle, ReturnsItsSize) {
  const qk::Handle pool;
  EXPECT_EQ(pool.size(), 0U);
  qk_mem_malloc(pool.number(), 100);
  EXPECT_EQ(pool.size(), 100U);
}

TEST_F(Handle, CanBeClearedIfItIsBlockManaged) {
  qk::Handle arena("BLOCKMGMT BLOCKSIZE=64");
  const std::string made = line_above();
  qk_mem_malloc(arena.number(), 50);
  scene_.skip_log();
  EXPECT_EQ(arena.clear(), 0);
  const std::string cleared = line_above();
  EXPECT_EQ(scene_.log(), "   qk_mem_iclear_handle:    3 d " + cleared + "; " + made + "\n");
  EXPECT_EQ(arena.size(), 96U);
}

TEST_F(Handle, CannotBeClearedUnlessItIsBlockManaged) {
  qk::Handle pool;
  scene_.skip_log();
  EXPECT_EQ(pool.clear(), 5566);
  const std::string location = line_above();
  EXPECT_EQ(scene_.log(),
            "   qk_mem_iclear_handle: ERROR: clear_handle on handle 3 with non-blockmgmt at " +
                location + "\n");
}

TEST(EmptyHandle, IsTreatedAsAnInvalidHandle) {
  Scene scene("DEBUG");
  qk::Handle pool("NONSENSE");
  scene.skip_log();
  EXPECT_EQ(pool.size(), static_cast<std::size_t>(-1));
  const std::string location = line_above();
  EXPECT_EQ(scene.log(), "   qk_mem_isize: ERROR: invalid hid 0 at " + location + "\n");
  EXPECT_EQ(pool.clear(), 5566);
}

/** The number and the location that a call with any arguments receives. */
template <class... Args>
std::string seen(qk::On on, Args&&...) {
  const std::string file(on.file());
  return std::to_string(on.number()) + " at " + file.substr(file.rfind('/') + 1) + ":" +
         std::to_string(on.line());
}

TEST(On, HoldsAHandlesNumberAndTheCallersLocation) {
  Scene scene("");
  const qk::Handle pool;
  const std::string by_handle = seen(pool);
  EXPECT_EQ(by_handle, "3 at " + line_above());
  const std::string by_number = seen(77, 1, "two", 3.0);
  EXPECT_EQ(by_number, "77 at " + line_above());
  const qk::On kept(pool);
  const std::string made = line_above();
  EXPECT_EQ(seen(kept), "3 at " + made);
}

}  // namespace
