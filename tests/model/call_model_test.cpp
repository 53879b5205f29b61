#include "tests/kit/call_model.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "core/roads.h"
#include "core/switches.h"
#include "tests/kit/array_check.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Scene;

class RandomChoices : public kit::Choices {
 public:
  explicit RandomChoices(unsigned seed) : random_(seed) {}
  unsigned pick(unsigned end) override { return static_cast<unsigned>(random_() % end); }

 private:
  std::mt19937 random_;
};

/** Compares all sums after each call, and looks at all arrays from time to time. */
void make_calls(unsigned seed, int steps) {
  RandomChoices choices(seed);
  kit::CallModel model(choices);
  for (int i = 0; i < steps; ++i) {
    ASSERT_TRUE(model.step()) << model.error();
    if (i % 100 != 0) continue;
    ASSERT_EQ(kit::check_all_arrays(), "");
  }
  EXPECT_TRUE(model.finish()) << model.error();
}

class RandomCalls : public ::testing::TestWithParam<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Seed, RandomCalls, ::testing::Values(1, 2, 3, 4, 5));

/** Formats every warning and discards it. */
TEST_P(RandomCalls, MatchPlainAccounting) {
  constexpr int kSteps = 60000;
  const Scene scene(Environment{"EXCEPTIONS LOG=/dev/null", "", ""});
  make_calls(GetParam(), kSteps);
}

TEST(RandomCallsOnTheFastPath, MatchPlainAccounting) {
  constexpr int kSteps = 60000;
  const Scene scene("SUMMARY");
  qk_mem_init();
  // The routines are off, so that calls take the fast path; handles still record.
  for (int routine = 1; routine < qk::mem::kRoutines; ++routine) Qk_mem_debug[routine].on = 0;
  {
    const qk::mem::RegistryLock lock;
    qk::mem::settle_all_roads();
  }
  make_calls(7, kSteps);
}

TEST(TracedRandomCalls, MatchPlainAccounting) {
  constexpr int kSteps = 20000;
  const Scene scene(Environment{"EXCEPTIONS CTRLBLKS=qk_mem_inew_handle LOG=/dev/null",
                                "HEAPSIZE DB=/dev/null", "OPTIONS=SUMMARY,HANDLES,MGMT,POINTERS"});
  make_calls(6, kSteps);
}

}  // namespace
