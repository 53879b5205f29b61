#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::hold;
using kit::Scene;
using kit::set_heap;
using kit::Stage;

/** The answer as text; "refused" or "no answer" if there is none. */
std::string ask(const char* query, const char* filter = "") {
  constexpr long kUntouched = -987654321;
  long answer = kUntouched;
  if (qk_mem_info(query, filter, &answer) != 0) return "refused";
  return answer == kUntouched ? "no answer" : std::to_string(answer);
}

/** Four handles: three from before a baseline, with new pointers on one, and one from after it. */
class Info : public ::testing::Test {
 protected:
  Info() {
    qk_mem_handle& overhead = stage_.handle(1, 'O', "L");
    qk_mem_handle& index = stage_.handle(2, 'D', "AB");
    qk_mem_handle& blocks = stage_.handle(4);
    blocks.blockmgmt = 'B';
    hold(overhead, 0x1000, 'M', 1, 1000);
    hold(index, 0x1000, 'C', 20, 100);
    hold(index, 0x1080, 'H', 1, 64);
    hold(blocks, 0x1000, 'B', 1, 4000);
    set_heap(200000);
    qk_mem_baseline("");
    hold(index, 0x1100, 'M', 1, 500);
    hold(index, 0x1180, 'M', 1, 1);
    qk_mem_handle& late = stage_.handle(7, 'D', "AB");
    late.autofree = 'a';
    hold(late, 0x1000, 'M', 1, 300);
    blocks.amount = 3000;
    set_heap(270336);
  }

  Stage stage_{135168};
};

TEST_F(Info, AnswersEachQuery) {
  const struct {
    const char* query;
    const char* answer;
  } cases[] = {
      {"INITIAL_HEAP", "135168"},
      {"BASELINE_HEAP", "200000"},
      {"CURRENT_HEAP", "270336"},
      {"HEAP_CHG_SINCE_BASELINE", "70336"},
      {"HEAP_CHG_SINCE_INITIAL", "135168"},
      {"HEAP_PCT_SINCE_BASELINE", "35"},
      {"HEAP_PCT_SINCE_INITIAL", "100"},
      {"UNTRACKED", "125231"},  // 135168 less 6801 of data, 4 pointer arrays of 768 and the 64
      {"CURRENT_ALLOC", "6801"},
      {"CURRENT_PTRS", "6"},
      {"BASELINE_ALLOC", "7000"},
      {"BASELINE_PTRS", "3"},
      {"CHG_SINCE_BASELINE", "-199"},
      {"PCT_SINCE_BASELINE", "2635249153387075"},
      {"", "0"},
  };
  for (const auto& one : cases) EXPECT_EQ(ask(one.query), one.answer) << one.query;
}

TEST_F(Info, CoversOnlyTheHandlesThatTheFilterKeeps) {
  const struct {
    const char* filter;
    const char* current_alloc;
    const char* current_ptrs;
    const char* baseline_alloc;
    const char* baseline_ptrs;
    const char* change;
    const char* per_cent;
  } cases[] = {
      {"HANDLE=2", "2501", "3", "2000", "1", "501", "25"},
      {"HANDLE=9", "0", "0", "0", "0", "0", "0"},
      {"TAG=ab", "2801", "4", "2000", "1", "801", "40"},
      {"TAG=NONE", "3000", "1", "4000", "1", "-1000", "4611686018427362"},
      {"TYPE=OVERHEAD", "1000", "1", "1000", "1", "0", "0"},
      {"TYPE=DATA", "5801", "5", "6000", "2", "-199", "3074457345618255"},
      {"AUTOFREE=TRUE", "300", "1", "0", "0", "300", "0"},
      {"BLOCKMGMT=FALSE", "3801", "5", "3000", "2", "801", "26"},
      {"NEW_HANDLE=TRUE", "300", "1", "0", "0", "300", "0"},
      {"NEW_HANDLE=FALSE AND TAG=AB", "2501", "3", "2000", "1", "501", "25"},
      {"NEW_PTRS=FALSE", "6801", "6", "7000", "3", "-199", "2635249153387075"},
      {"TYPE=nonsense", "6801", "6", "7000", "3", "-199", "2635249153387075"},
      {"AND", "6801", "6", "7000", "3", "-199", "2635249153387075"},
      {" ", "6801", "6", "7000", "3", "-199", "2635249153387075"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(ask("CURRENT_ALLOC", one.filter), one.current_alloc) << one.filter;
    EXPECT_EQ(ask("CURRENT_PTRS", one.filter), one.current_ptrs) << one.filter;
    EXPECT_EQ(ask("BASELINE_ALLOC", one.filter), one.baseline_alloc) << one.filter;
    EXPECT_EQ(ask("BASELINE_PTRS", one.filter), one.baseline_ptrs) << one.filter;
    EXPECT_EQ(ask("CHG_SINCE_BASELINE", one.filter), one.change) << one.filter;
    EXPECT_EQ(ask("PCT_SINCE_BASELINE", one.filter), one.per_cent) << one.filter;
  }
}

TEST_F(Info, AnswersByPrecedenceNotByOrderInTheQuery) {
  EXPECT_EQ(ask("CURRENT_PTRS BASELINE_PTRS"), "6");
  EXPECT_EQ(ask("BASELINE_PTRS CURRENT_PTRS"), "6");
  EXPECT_EQ(ask("BASELINE_PTRS,CURRENT_PTRS,INITIAL_HEAP"), "135168");
  EXPECT_EQ(ask("PCT_SINCE_BASELINE UNTRACKED"), "125231");
}

TEST_F(Info, ReadsKeywordsInEitherCaseButNotAbbreviated) {
  EXPECT_EQ(ask("current_ptrs"), "6");
  EXPECT_EQ(ask("  Current_Ptrs\t"), "6");
  EXPECT_EQ(ask("CURRENT_PTR"), "refused");
}

TEST_F(Info, AnswersZeroIfNothingIsAsked) {
  EXPECT_EQ(ask(nullptr), "0");
  EXPECT_EQ(ask(""), "0");
  EXPECT_EQ(ask(" , "), "0");
  EXPECT_EQ(ask("", "TAG=AB"), "0");
}

TEST_F(Info, TreatsANullFilterAsNone) { EXPECT_EQ(ask("CURRENT_HEAP", nullptr), "270336"); }

TEST_F(Info, SamplesTheHeapOnce) {
  set_heap(300000);
  EXPECT_EQ(ask("CURRENT_ALLOC"), "6801");
  EXPECT_EQ(kit::heap_probes(), 1);
}

TEST_F(Info, LeavesTheErrorCodeAlone) {
  (void)qk_mem_isize(99, "app.c", 1);
  ask("CURRENT_ALLOC");
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST_F(Info, SumsWrappedCountsAsTheyAre) {
  Qk_mem_handles[0]->qty = 4294967295;
  Qk_mem_handles[1]->qty = 2;
  Qk_mem_handles[1]->base_qty = 4294967295;
  EXPECT_EQ(ask("CURRENT_PTRS", "HANDLE=1"), "4294967295");
  EXPECT_EQ(ask("CURRENT_PTRS", "TYPE=OVERHEAD"), "4294967295");
  EXPECT_EQ(ask("CURRENT_PTRS"), "4294967299");
  EXPECT_EQ(ask("BASELINE_PTRS"), "4294967297");
}

TEST_F(Info, TruncatesPercentagesTowardsZero) {
  const struct {
    int heap;
    const char* since_initial;   // 135168
    const char* since_baseline;  // 200000
  } cases[] = {
      {136519, "0", "-31"}, {136520, "1", "-31"},      {133817, "0", "-33"}, {133816, "-1", "-33"},
      {201999, "49", "0"},  {202000, "49", "1"},       {198001, "46", "0"},  {198000, "46", "-1"},
      {0, "-100", "-100"},  {-200000, "-247", "-200"},
  };
  for (const auto& one : cases) {
    set_heap(one.heap);
    EXPECT_EQ(ask("HEAP_PCT_SINCE_INITIAL"), one.since_initial) << one.heap;
    EXPECT_EQ(ask("HEAP_PCT_SINCE_BASELINE"), one.since_baseline) << one.heap;
  }
}

TEST(InfoOfTheHeap, TruncatesAGrowthOfOnePointNinePerCentToOne) {
  Stage stage(1000);
  set_heap(1019);
  EXPECT_EQ(ask("HEAP_PCT_SINCE_INITIAL"), "1");
}

TEST(InfoOfTheHeap, AnswersZeroPercentIfItGrewFromZero) {
  Stage stage(0);
  set_heap(5000);
  EXPECT_EQ(ask("HEAP_PCT_SINCE_BASELINE"), "0");
  EXPECT_EQ(ask("HEAP_PCT_SINCE_INITIAL"), "0");
  EXPECT_EQ(ask("BASELINE_HEAP"), "0");
  EXPECT_EQ(ask("HEAP_CHG_SINCE_BASELINE"), "5000");
  EXPECT_EQ(ask("HEAP_CHG_SINCE_INITIAL"), "5000");
}

TEST(InfoOfTheHeap, IsNegativeIfItShrankOrMoreIsTracked) {
  Stage stage(5000);
  hold(stage.handle(1), 0x1000, 'M', 1, 10000);
  qk_mem_baseline("");
  set_heap(4000);
  EXPECT_EQ(ask("HEAP_CHG_SINCE_BASELINE"), "-1000");
  EXPECT_EQ(ask("HEAP_CHG_SINCE_INITIAL"), "-1000");
  EXPECT_EQ(ask("UNTRACKED"), "-11768");
}

TEST(InfoOfGrowth, IsUnsignedInPerCentAndSignedInBytes) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  const struct {
    std::uint64_t base;
    std::uint64_t current;
    const char* change;
    const char* per_cent;
  } cases[] = {
      {1000, 1050, "50", "5"},
      {1000, 1000, "0", "0"},
      {1000, 1009, "9", "0"},
      {3, 300, "297", "9900"},
      {0, 1000, "1000", "0"},
      {1000, 0, "-1000", "0"},
      {0, 0, "0", "0"},
      {1000, 999, "-1", "18446744073709551"},
      {1, 184467440737095518, "184467440737095517", "84"},  // the product wraps too
      {100, 99, "-1", "184467440737095515"},
      {2, 1, "-1", "9223372036854775758"},
  };
  for (const auto& one : cases) {
    handle.base_amount = one.base;
    handle.amount = one.current;
    EXPECT_EQ(ask("CHG_SINCE_BASELINE"), one.change) << one.base << " " << one.current;
    const std::string per_cent = ask("PCT_SINCE_BASELINE");
    EXPECT_EQ(per_cent, one.per_cent) << one.base << " " << one.current;
  }
}

TEST(InfoWithoutConfiguration, AnswersAndStartsTheLibrary) {
  const Scene scene;
  set_heap(4096);
  EXPECT_EQ(ask("INITIAL_HEAP"), "4096");
  const int hid = qk_mem_inew_handle("", "AB", "app.c", 1);
  qk_mem_imalloc(hid, 100, 16, "app.c", 2);
  EXPECT_EQ(ask("CURRENT_ALLOC", "TAG=AB"), "100");
  EXPECT_EQ(ask("CURRENT_PTRS", "TAG=AB"), "1");
}

}  // namespace
