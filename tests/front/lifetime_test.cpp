#include <gtest/gtest.h>

#include <cstddef>
#include <memory_resource>
#include <type_traits>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"
#include "tests/kit/scene.h"

namespace {

using kit::Scene;

static_assert(!std::is_copy_assignable_v<qk::memory_resource>);
static_assert(!std::is_move_assignable_v<qk::memory_resource>);
static_assert(std::is_copy_constructible_v<qk::memory_resource>);

/** Whether T can be created from a handle that has a name. */
template <class T>
inline constexpr bool kTakesNamed =
    std::is_constructible_v<T, qk::Handle&>&& std::is_constructible_v<T, const qk::Handle&>;

/** Whether T can be created from a handle that ends with the expression. */
template <class T>
inline constexpr bool kTakesTemporary =
    std::is_constructible_v<T, qk::Handle> || std::is_constructible_v<T, const qk::Handle>;

static_assert(kTakesNamed<qk::On>);
static_assert(kTakesTemporary<qk::On>, "a function can use it until it returns");
static_assert(kTakesNamed<qk::memory_resource> && !kTakesTemporary<qk::memory_resource>);
static_assert(kTakesNamed<qk::allocator<int>> && !kTakesTemporary<qk::allocator<int>>);
static_assert(!std::is_constructible_v<qk::allocator<int>, qk::Handle, qk::Location>);
static_assert(!std::is_convertible_v<qk::Handle, qk::allocator<int>>);
static_assert(kTakesNamed<std::vector<int, qk::allocator<int>>>);
static_assert(!kTakesTemporary<std::vector<int, qk::allocator<int>>>);
static_assert(kTakesNamed<qk::Deleter<int>> && !kTakesTemporary<qk::Deleter<int>>);
static_assert(kTakesNamed<qk::Deleter<int[]>> && !kTakesTemporary<qk::Deleter<int[]>>);
static_assert(!std::is_constructible_v<qk::Deleter<int>, qk::Handle, bool>);

template <class Handle>
concept MakesObjects = requires(Handle&& handle) {
  qk::make<int>(std::forward<Handle>(handle), 1);
  qk::make_unique<int>(std::forward<Handle>(handle), 1);
  qk::make_array<int>(std::forward<Handle>(handle), 1U);
  qk::make_unique<int[]>(std::forward<Handle>(handle), 1U);
};
template <class Handle>
concept MakesAnObject = requires(Handle&& handle) {
  qk::make<int>(std::forward<Handle>(handle), 1);
}
|| requires(Handle&& handle) { qk::make_unique<int>(std::forward<Handle>(handle), 1); }
|| requires(Handle&& handle) { qk::make_array<int>(std::forward<Handle>(handle), 1U); }
|| requires(Handle&& handle) { qk::make_unique<int[]>(std::forward<Handle>(handle), 1U); };

static_assert(MakesObjects<qk::Handle&> && MakesObjects<const qk::Handle&>);
static_assert(!MakesAnObject<qk::Handle> && !MakesAnObject<const qk::Handle>);

[[nodiscard]] std::size_t bytes_on(qk::On on) { return qk_mem_isize(on.number(), "lib/a.c", 1); }

TEST(TemporaryHandle, ServesAFunctionUntilItReturns) {
  const Scene scene("");
  EXPECT_EQ(bytes_on(qk::Handle()), 0U);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(CopyOfAMemoryResource, FreesTheMemoryOfItsOriginal) {
  Scene scene("EXCEPTIONS");
  const qk::Handle pool;
  scene.skip_log();
  qk::memory_resource resource(pool);
  qk::memory_resource copy(resource);  // NOLINT(performance-unnecessary-copy-initialization)
  copy.deallocate(resource.allocate(100), 100);
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(pool.size(), 0U);
}

}  // namespace
