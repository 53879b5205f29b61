#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "qkmem/qkmem.hpp"
#include "tests/kit/scene.h"

namespace {

using kit::Scene;

enum Unscoped { kUnscoped = 3 };
enum class Scoped { kScoped = 3 };

static_assert(std::is_convertible_v<int, qk::On>);
static_assert(std::is_convertible_v<const int&, qk::On>);
static_assert(std::is_convertible_v<decltype(QK_MEM_DATA_HANDLE), qk::On>);

/** Whether a value of type T can be taken for the number of a handle. */
template <class... T>
inline constexpr bool kAnyIsTaken = (std::is_convertible_v<T, qk::On> || ...) ||
                                    (std::is_constructible_v<qk::On, T> || ...);

static_assert(!kAnyIsTaken<bool, char, signed char, unsigned char, wchar_t>);
static_assert(!kAnyIsTaken<short, unsigned, long, unsigned long, std::size_t>);
static_assert(!kAnyIsTaken<float, double, long double>);
static_assert(!kAnyIsTaken<Unscoped, Scoped, std::nullptr_t, const char*, bool&, const char&>);

/** Can be created from one int, or from two. */
class Image {
 public:
  explicit Image(int width, int height = 1) : width_(width), height_(height) {}

  [[nodiscard]] int area() const { return width_ * height_; }

 private:
  int width_;
  int height_;
};

template <class T, class... Args>
concept Makes = requires(Args&&... args) {
  qk::make<T>(static_cast<Args&&>(args)...);
};
template <class T, class... Args>
concept MakesUnique = requires(Args&&... args) {
  qk::make_unique<T>(static_cast<Args&&>(args)...);
};

static_assert(!Makes<Image, int, int> && !MakesUnique<Image, int, int>, "640, 480");
static_assert(!Makes<Image, int> && !MakesUnique<Image, int>, "640");
static_assert(Makes<Image, int&, int> && MakesUnique<Image, const int&, int>, "a variable");
static_assert(Makes<Image, qk::On, int> && Makes<Image, const qk::Handle&, int>);
static_assert(Makes<Image, int, int, int>, "only a handle can be first");

TEST(NumberOfAHandle, CanBeAVariable) {
  const Scene scene("");
  const qk::Handle pool;
  int number = pool.number();
  auto* const image = qk::make<Image>(number, 640, 480);
  EXPECT_EQ(image->area(), 640 * 480);
  qk::destroy(number, image);
  const auto small = qk::make_unique<Image>(number, 640);
  EXPECT_EQ(small->area(), 640);
  EXPECT_EQ(pool.size(), sizeof(Image));
}

TEST(NumberOfAHandle, CanLackANameIfNoConstructorTakesIt) {
  const Scene scene("");
  const qk::Handle pool;
  const auto image = qk::make_unique<Image>(pool.number(), 640, 480);
  EXPECT_EQ(image->area(), 640 * 480);
  EXPECT_EQ(pool.size(), sizeof(Image));
}

TEST(NumberOfAHandle, CanBeNamedAsOne) {
  const Scene scene("");
  const qk::Handle pool;
  const auto image = qk::make_unique<Image>(qk::On(pool.number()), 640);
  EXPECT_EQ(image->area(), 640);
  EXPECT_EQ(pool.size(), sizeof(Image));
}

}  // namespace
