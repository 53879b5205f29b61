#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::line_above;
using kit::Scene;

/** Records its destruction, and can fail to be constructed. */
class Part {
 public:
  explicit Part(std::string name = "part", bool fails = false) : name_(std::move(name)) {
    if (fails) throw std::runtime_error("no such part");
  }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  virtual ~Part() { ends += name_ + " "; }

  [[nodiscard]] const std::string& name() const { return name_; }

  static inline std::string ends;

 private:
  std::string name_;
};

class Wheel : public Part {
 public:
  Wheel() : Part("wheel") {}
};

struct Plain {};
struct FromPlain : Plain {};

static_assert(std::is_same_v<qk::unique<Part>, std::unique_ptr<Part, qk::Deleter<Part>>>);
static_assert(std::is_convertible_v<qk::unique<Wheel>, qk::unique<Part>>);
static_assert(std::is_convertible_v<qk::unique<Part>, qk::unique<const Part>>);
static_assert(!std::is_convertible_v<qk::unique<Part>, qk::unique<Wheel>>);
static_assert(!std::is_convertible_v<qk::unique<FromPlain>, qk::unique<Plain>>,
              "deletion through the base would be wrong");
static_assert(!std::is_convertible_v<qk::unique<Wheel[]>, qk::unique<Part[]>>);
static_assert(std::is_convertible_v<qk::unique<Part[]>, qk::unique<const Part[]>>);
static_assert(std::is_assignable_v<qk::unique<const int[]>&, qk::unique<int[]>>);
static_assert(!std::is_convertible_v<qk::unique<const int[]>, qk::unique<int[]>>);
static_assert(!std::is_convertible_v<qk::unique<int>, qk::unique<int[]>>);
static_assert(std::is_nothrow_move_constructible_v<qk::unique<Part>>);
static_assert(std::is_nothrow_default_constructible_v<qk::unique<Part[]>>);

/** Handle 3. Its pointer arrays exist already, so that each event is logged by itself. */
class Unique : public ::testing::Test {
 protected:
  Unique() {
    kit::make_arrays(pool_.number());
    scene_.skip_log();
  }

  Scene scene_{Environment{"DEBUG", "DB", ""}};
  qk::Handle pool_;
};

TEST_F(Unique, EndsWithItsScopeAndLogsWhereItWasMade) {
  std::string made;
  {
    const auto part = qk::make_unique<Part>(pool_, "one");
    made = line_above();
    EXPECT_EQ(part->name(), "one");
    EXPECT_EQ(pool_.size(), sizeof(Part));
    scene_.skip_log();
  }
  const std::string size = std::to_string(sizeof(Part));
  EXPECT_EQ(scene_.log(), "   qk_mem_ideregister:          3 [p1] \x01 " + made + "; W " + size +
                              " " + made + "\n   qk_mem_tracker:   3 [p2] E " + made + "; T 16 " +
                              made + "\n");
  EXPECT_EQ(Part::ends, "one ");
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Unique, CanBeAnArray) {
  std::string made;
  {
    const qk::unique<Part[]> parts = qk::make_unique<Part[]>(pool_, 3);
    made = line_above();
    EXPECT_EQ(parts[2].name(), "part");
    scene_.skip_log();
  }
  const std::string size = std::to_string(3 * sizeof(Part));
  EXPECT_EQ(scene_.log(), "   qk_mem_ideregister:          3 [p1] \x02 " + made + "; J 1/" + size +
                              " " + made + "\n   qk_mem_tracker:   3 [p2] E " + made + "; T 16 " +
                              made + "\n");
  EXPECT_EQ(Part::ends, "part part part ");
}

TEST_F(Unique, CanBeMovedAndReplaced) {
  qk::unique<Part> part = qk::make_unique<Part>(pool_, "one");
  qk::unique<Part> other = std::move(part);
  EXPECT_EQ(part, nullptr);  // NOLINT(bugprone-use-after-move): it is empty
  other = qk::make_unique<Part>(pool_, "two");
  EXPECT_EQ(Part::ends, "one ");
  other.reset();
  EXPECT_EQ(Part::ends, "one two ");
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
}

TEST_F(Unique, CanConvertToABase) {
  {
    std::vector<qk::unique<Part>> parts;
    parts.push_back(qk::make_unique<Wheel>(pool_));
    parts.push_back(qk::make_unique<Part>(pool_, "frame"));
    const qk::unique<const Part> constant = qk::make_unique<Part>(pool_, "constant");
  }
  EXPECT_EQ(Part::ends, "constant wheel frame ");
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Unique, CanConvertToAnArrayOfConstants) {
  {
    const qk::unique<const Part[]> parts = qk::make_unique<Part[]>(pool_, 2);
    EXPECT_EQ(parts[1].name(), "part");
    EXPECT_EQ(pool_.size(), 2 * sizeof(Part));
  }
  EXPECT_EQ(Part::ends, "part part ");
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Unique, CanConvertToASharedPointer) {
  std::shared_ptr<Part> shared = qk::make_unique<Wheel>(pool_);
  const std::shared_ptr<Part> other = shared;
  shared.reset();
  EXPECT_EQ(Part::ends, "");
  EXPECT_EQ(pool_.size(), sizeof(Wheel));
}

TEST_F(Unique, CanReleaseAndAdoptAnObject) {
  auto part = qk::make_unique<Part>(pool_, "one");
  const qk::unique<Part> again(part.release(), qk::Deleter<Part>(pool_));
  part = qk::unique<Part>(qk::make<Part>(pool_, "two"), qk::Deleter<Part>(pool_));
  part.reset();
  EXPECT_EQ(Part::ends, "two ");
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
}

TEST_F(Unique, CanBeEmpty) {
  {
    qk::unique<Part> none;
    qk::unique<Part[]> nobody = nullptr;
    none.reset();
    none = qk::make_unique<Part>(pool_, "one");
    nobody = qk::make_unique<Part[]>(pool_, 1);
  }
  EXPECT_EQ(Part::ends, "part one ");
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Unique, LeavesNothingWhenItsConstructorThrows) {
  EXPECT_THROW(static_cast<void>(qk::make_unique<Part>(pool_, "one", true)), std::runtime_error);
  EXPECT_EQ(scene_.log(), "");
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(Unique, EndsWithoutAWarningIfItWasNeverRecorded) {
  kit::fill_arrays(pool_.number());
  scene_.skip_log();
  {
    kit::fail_request(3);  // after those for the tracker and the object
    const auto part = qk::make_unique<Plain>(pool_);
    EXPECT_TRUE(kit::has_failed());
    scene_.skip_log();
  }
  EXPECT_EQ(scene_.log(), "");
}

struct Hidden;

/** Holds an object whose type is defined only below. */
class Shell {
 public:
  explicit Shell(const qk::Handle& pool);
  Shell(Shell&&) noexcept;
  ~Shell();
  [[nodiscard]] int value() const;

 private:
  qk::unique<Hidden> hidden_;
};

TEST_F(Unique, CanHideItsType) {
  Shell first(pool_);
  const Shell shell(std::move(first));
  EXPECT_EQ(shell.value(), 42);
  EXPECT_EQ(pool_.size(), 4U);
}

struct Hidden {
  int value = 42;
};

Shell::Shell(const qk::Handle& pool) : hidden_(qk::make_unique<Hidden>(pool)) {}
Shell::Shell(Shell&&) noexcept = default;
Shell::~Shell() = default;
int Shell::value() const { return hidden_->value; }

TEST(UniqueOnTheDataHandle, EndsSilentlyEvenIfConfiguredLater) {
  Scene scene("");
  {
    const auto part = qk::make_unique<Part>(QK_MEM_DATA_HANDLE, "one");
    const auto parts = qk::make_unique<Part[]>(QK_MEM_DATA_HANDLE, 2);
    qk::Status status;
    EXPECT_EQ(qk_mem_debug_config("DEBUG", &status), 0);
  }
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(Part::ends, "part part one ");
}

}  // namespace
