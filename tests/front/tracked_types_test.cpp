#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <typeinfo>

#include "qkmem/qkmem.hpp"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

/** Which types can be made, tracked and destroyed. */
namespace {

using kit::line_above;
using kit::Scene;

std::string& history() {
  static std::string text;
  return text;
}

class Shape {
 public:
  Shape() = default;
  Shape(const Shape&) = delete;
  Shape& operator=(const Shape&) = delete;
  virtual ~Shape() { history() += "shape "; }

  std::int64_t area = 1;
};

class Named {
 public:
  Named() = default;
  Named(const Named&) = delete;
  Named& operator=(const Named&) = delete;
  virtual ~Named() { history() += "named "; }

  std::int64_t length = 2;
};

/** Its second base is at another address than the object. */
class Circle : public Shape, public Named {
 public:
  ~Circle() override { history() += "circle "; }
};

/** Only the object itself knows the address of its base. */
class Virtual : public virtual Shape {
 public:
  ~Virtual() override { history() += "virtual "; }

  std::int64_t more = 3;
};

/** A handle on which misuse is logged. */
class TrackedTypes : public ::testing::Test {
 protected:
  TrackedTypes() { scene_.skip_log(); }

  Scene scene_{"EXCEPTIONS"};
  qk::Handle pool_;
};

TEST_F(TrackedTypes, CanBePolymorphic) {
  auto* const circle = qk::make<Circle>(pool_);
  qk::destroy(pool_, circle);
  EXPECT_EQ(scene_.log(), "");
  EXPECT_EQ(history(), "circle named shape ");
}

TEST_F(TrackedTypes, CanBeDestroyedThroughEitherBase) {
  Shape* const shape = qk::make<Circle>(pool_);
  qk::destroy(pool_, shape);
  Named* const named = qk::make<Circle>(pool_);
  EXPECT_EQ(pool_.size(), sizeof(Circle));
  qk::destroy(pool_, named);
  EXPECT_EQ(scene_.log(), "");
  EXPECT_EQ(pool_.size(), 0U);
  EXPECT_EQ(history(), "circle named shape circle named shape ");
}

TEST_F(TrackedTypes, CanHaveVirtualBases) {
  Shape* const shape = qk::make<Virtual>(pool_);
  qk::destroy(pool_, shape);
  EXPECT_EQ(scene_.log(), "");
  EXPECT_EQ(history(), "virtual shape ");
}

TEST_F(TrackedTypes, AreThoseOfTheObjectNotOfThePointer) {
  Named* const named = qk::make<Circle>(pool_);
  qk::Tracker<Shape> as_shape;
  as_shape.address = dynamic_cast<void*>(named);
  qk_mem_deregister(pool_.number(), QK_MEM_OBJECT, static_cast<qk::MemTracker*>(&as_shape));
  const std::string location = line_above();
  as_shape.address = nullptr;
  EXPECT_NE(scene_.log().find("deregister of object with invalid typename '"), std::string::npos);
  EXPECT_NE(scene_.log().find("5ShapeE' at " + location), std::string::npos);
  const std::string circle = typeid(Circle).name();
  EXPECT_NE(scene_.log().find("(allocated as '" + circle + "'"), std::string::npos);
  delete named;
}

template <std::size_t kAlign>
struct alignas(kAlign) Aligned {
  Aligned() {
    history() += reinterpret_cast<std::uintptr_t>(this) % kAlign == 0 ? "well " : "badly ";
  }
  ~Aligned() { history() += "gone "; }
  char bytes[3] = {};
};

TEST_F(TrackedTypes, CanBeOverAligned) {
  auto* const small = qk::make<Aligned<32>>(pool_);
  auto* const large = qk::make<Aligned<4096>>(pool_);
  EXPECT_EQ(pool_.size(), 32U + 4096U);
  EXPECT_EQ(history(), "well well ");
  qk::destroy(pool_, small);
  qk::destroy(pool_, large);
  EXPECT_EQ(history(), "well well gone gone ");
}

TEST_F(TrackedTypes, CanBeOverAlignedInArrays) {
  auto* const three = qk::make_array<Aligned<64>>(pool_, 3);
  EXPECT_EQ(pool_.size(), 192U);
  EXPECT_EQ(history(), "well well well ");
  qk::destroy<Aligned<64>[]>(pool_, three);
  EXPECT_EQ(history(), "well well well gone gone gone ");
}

TEST_F(TrackedTypes, CanBeOverAlignedIfTheHandleDestroysThem) {
  static_cast<void>(qk::make<Aligned<256>>(pool_));
  static_cast<void>(qk::make_array<Aligned<256>>(pool_, 2));
  pool_ = qk::Handle();
  EXPECT_EQ(history(), "well well well gone gone gone ");
}

/** Has its own operators new and delete. */
class SelfMade {
 public:
  ~SelfMade() { history() += "end "; }

  static void* operator new(std::size_t size) {
    history() += "new ";
    return ::operator new(size);
  }
  static void operator delete(void* memory) {
    history() += "delete ";
    ::operator delete(memory);
  }
};

TEST_F(TrackedTypes, CanHaveTheirOwnNewAndDelete) {
  qk::destroy(pool_, qk::make<SelfMade>(pool_));
  static_cast<void>(qk::make<SelfMade>(pool_));
  pool_ = qk::Handle();
  EXPECT_EQ(history(), "new end delete new end delete ");
}

TEST_F(TrackedTypes, CanBeArraysOfArrays) {
  using Row = int[4];
  Row* const rows = qk::make_array<Row>(pool_, 3);
  EXPECT_EQ(rows[2][3], 0);
  EXPECT_EQ(pool_.size(), 48U);
  qk::destroy<Row[]>(pool_, rows);
  EXPECT_EQ(scene_.log(), "");
}

TEST(Tracker, DestroysItsObject) {
  {
    const qk::Tracker<Circle> tracker(new Circle);
    EXPECT_EQ(tracker.tracked_type(), typeid(Circle));
    EXPECT_EQ(tracker.size(), 16U);
    EXPECT_EQ(history(), "");
  }
  EXPECT_EQ(history(), "circle named shape ");
}

TEST(Tracker, DestroysItsArrayFromItsEnd) {
  struct Numbered {
    ~Numbered() { history() += std::to_string(number) + " "; }
    int number = 0;
  };
  auto* const numbers = new Numbered[3];
  for (int i = 0; i < 3; ++i) numbers[i].number = i;
  { const qk::Tracker<Numbered[]> tracker(numbers); }
  EXPECT_EQ(history(), "2 1 0 ");
}

TEST(Tracker, DestroysNothingIfItsAddressIsNull) {
  { const qk::Tracker<Circle> tracker; }
  Circle circle;
  {
    qk::Tracker<Circle> tracker(&circle);
    tracker.address = nullptr;
  }
  EXPECT_EQ(history(), "");
}

TEST(Tracker, RecognizesTrackersOfItsType) {
  const qk::Tracker<int> one;
  const qk::Tracker<int> other;
  const qk::Tracker<int[]> array;
  const qk::Tracker<const int> constant;
  const qk::Tracker<long> different;
  EXPECT_TRUE(one.same_type(other));
  EXPECT_TRUE(one.same_type(array)) << "the kind of the record tells them apart";
  EXPECT_TRUE(array.same_type(one));
  EXPECT_TRUE(one.same_type(constant));
  EXPECT_FALSE(one.same_type(different));
  EXPECT_FALSE(array.same_type(different));
}

}  // namespace
