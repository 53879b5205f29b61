#include "qkmem/no_growth.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "profile/options.h"
#include "profile/state.h"
#include "qkmem/gtest.hpp"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;

void* take(int hid, std::size_t size, int line) {
  return qk_mem_imalloc(hid, size, 16, "a.c", line);
}

class NoGrowth : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null")); }

  kit::Scene scene_;
};

/** What is written to standard error while `body` runs. */
template <class Body>
std::string errors_of(Body body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

TEST_F(NoGrowth, IsSilentIfNoHandleHasGrown) {
  const Pool pool;
  void* const before = take(pool, 100, 1);
  EXPECT_EQ("", errors_of([&] {
              const qk::NoGrowth guard("parser");
              take(pool, 100, 2);
              qk_mem_free(pool, before);
            }));
}

TEST_F(NoGrowth, TellsTheSitesOfAScopeThatHasGrown) {
  const Pool pool;
  const std::string text = errors_of([&] {
    const qk::NoGrowth guard("parser");
    take(pool, 100, 1);
  });
  EXPECT_EQ(0U,
            text.find("qkmem: 1 site grew by 100 B in 1 block between \"parser #1\" (event 0, "))
      << text;
  EXPECT_NE(std::string::npos, text.find("  +100 B      +1     1  100 B       3  a.c:1\n")) << text;
}

TEST_F(NoGrowth, WatchesOnlyWhatItsFilterSelects) {
  const Pool watched("", "PA");
  const Pool other;
  EXPECT_EQ("", errors_of([&] {
              const qk::NoGrowth guard("parser", "TAG=PA");
              take(other, 100, 1);
            }));
  const std::string text = errors_of([&] {
    const qk::NoGrowth guard("parser", "TAG=PA");
    take(watched, 10, 1);
    take(other, 100, 1);
  });
  EXPECT_EQ(0U, text.find("qkmem: 1 site grew by 10 B in 1 block between ")) << text;
}

TEST_F(NoGrowth, NestsUnderOneName) {
  const Pool pool;
  const qk::NoGrowth outer("parser");
  void* const first = take(pool, 100, 1);
  std::optional<qk::NoGrowth> inner("parser");
  void* const second = take(pool, 10, 2);
  EXPECT_EQ(10, inner->growth().bytes);
  EXPECT_EQ(110, outer.growth().bytes);
  qk_mem_free(pool, second);
  EXPECT_EQ("", errors_of([&] { inner.reset(); }));
  EXPECT_EQ(100, outer.growth().bytes);
  qk_mem_free(pool, first);
}

TEST_F(NoGrowth, TakesAnyName) {
  const Pool pool;
  const std::string names[] = {"",           "two words",   "'single'",
                               "\"double\"", "\"'mixed=\n", std::string(1000, 'x')};
  for (const std::string& name : names) {
    qk::NoGrowth guard(name.c_str());
    take(pool, 10, 1);
    EXPECT_EQ(0U, guard.report().find("qkmem: 1 site grew by 10 B")) << name;
    guard.stop();
  }
  qk::NoGrowth guard(nullptr);
  take(pool, 10, 1);
  EXPECT_NE(std::string::npos, guard.report().find(" between \"(null) #")) << guard.report();
  guard.stop();
}

TEST_F(NoGrowth, ReportsAMistakeInItsFilter) {
  const Pool pool;
  const std::string text = errors_of([] { const qk::NoGrowth guard("parser", "TAK=PA"); });
  EXPECT_EQ(0U, text.find("qkmem: qk_mem_growth: unknown keyword 'TAK'; is TAG meant? There is no "
                          "answer.\n"))
      << text;
}

TEST_F(NoGrowth, LeavesNoSnapshotBehind) {
  { const qk::NoGrowth guard("parser"); }
  EXPECT_EQ(5002, qk_mem_drop_snapshot("parser #1"));
  const std::uint64_t mapped = qk::mem::profile::own_bytes();
  for (int i = 0; i < 10'000; ++i) const qk::NoGrowth guard("parser");
  EXPECT_EQ(mapped, qk::mem::profile::own_bytes());
}

TEST_F(NoGrowth, IsSilentOnceItIsStopped) {
  const Pool pool;
  EXPECT_EQ("", errors_of([&] {
              qk::NoGrowth guard("parser");
              take(pool, 100, 1);
              guard.stop();
            }));
}

TEST(NoGrowthWithoutProfile, DoesNothing) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Pool pool;
  EXPECT_EQ("", errors_of([&] {
              const qk::NoGrowth guard("parser");
              take(pool, 100, 1);
              EXPECT_EQ(5061, guard.code());
            }));
}

const testing::TestInfo& this_test() {
  return *testing::UnitTest::GetInstance()->current_test_info();
}

TEST(GrowthListener, FailsATestInWhichAHandleGrew) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Pool pool;
  static qk::GrowthListener listener;
  listener.OnTestStart(this_test());
  take(pool, 100, 1);
  EXPECT_NONFATAL_FAILURE(listener.OnTestEnd(this_test()), "100 B       3  a.c:1\n");
  listener.OnTestStart(this_test());
  qk_mem_free(pool, take(pool, 100, 2));
  listener.OnTestEnd(this_test());
}

TEST(GrowthListener, DoesNotJudgeATestThatHasFailedAnyway) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const auto output = [](bool fails) {
    return kit::run({"", "", ""},
                    [fails] {
                      static qk::GrowthListener listener;
                      listener.OnTestStart(this_test());
                      take(QK_MEM_DATA_HANDLE, 100, 1);
                      if (fails) ADD_FAILURE() << "of its own";
                      listener.OnTestEnd(this_test());
                    })
        .out;
  };
  EXPECT_NE(std::string::npos, output(false).find("1 site grew by 100 B"));
  EXPECT_NE(std::string::npos, output(true).find("of its own"));
  EXPECT_EQ(std::string::npos, output(true).find("1 site grew"));
}

TEST(GrowthListener, WatchesWhatItsFilterSelects) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Pool pool("", "PA");
  static qk::GrowthListener listener("TAG=QA");
  listener.OnTestStart(this_test());
  take(pool, 100, 1);
  listener.OnTestEnd(this_test());
}

TEST(GrowthListener, KeepsTheProfileThatTheUserHasChosen) {
  const kit::Scene scene(kit::Environment{"", "", "", "TOP=7 REPORT=/dev/null"});
  const qk::GrowthListener listener;
  EXPECT_EQ(7U, qk::mem::profile::options().top);
}

}  // namespace
