#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::hold;
using kit::Stage;

constexpr long kUntouched = 4711;

/** "11102", or "11102, and an answer"; "answered" if the query succeeds. */
std::string refusal(const std::string& query, const std::string& filter) {
  long answer = kUntouched;
  Qk_mem_error.set(0);
  const int result = qk_mem_info(query.c_str(), filter.c_str(), &answer);
  if (result == 0) return "answered";
  EXPECT_EQ(result, -1) << query << " " << filter;
  return std::to_string(qk_mem_error()) + (answer == kUntouched ? "" : ", and an answer");
}

void configure(const char* debug) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
}

TEST(RefusedInfo, ResultsFromAnInvalidQuery) {
  const Stage stage;
  for (const char* query : {"NONSENSE", "CURRENT_ALLOC NONSENSE", "CURRENT_ALLOC=1", "CURRENT_HEA",
                            "UNTRACKEDS", "=", "CURRENT_ALLOC='x"}) {
    EXPECT_EQ(refusal(query, ""), "11102") << query;
  }
}

TEST(RefusedInfo, ResultsFromAnInvalidFilter) {
  const Stage stage;
  EXPECT_EQ(refusal("CURRENT_ALLOC", "NONSENSE"), "11102");
  EXPECT_EQ(refusal("CURRENT_ALLOC", "HANDLE"), "11102");
  EXPECT_EQ(refusal("CURRENT_ALLOC", "TAG=ABC"), "11103");
  EXPECT_EQ(refusal("", "TAG=ABC"), "11103");
}

TEST(RefusedInfo, ResultsFromEachHeapQueryWithAnyFilter) {
  const Stage stage;
  for (const char* query : {"INITIAL_HEAP", "BASELINE_HEAP", "CURRENT_HEAP",
                            "HEAP_CHG_SINCE_BASELINE", "HEAP_CHG_SINCE_INITIAL",
                            "HEAP_PCT_SINCE_BASELINE", "HEAP_PCT_SINCE_INITIAL", "UNTRACKED"}) {
    EXPECT_EQ(refusal(query, "TYPE=DATA"), "11112") << query;
    EXPECT_EQ(refusal(query, "AND"), "11112") << query;
    EXPECT_EQ(refusal(query, " "), "11112") << query;
    EXPECT_EQ(refusal(query, ""), "answered") << query;
  }
}

TEST(RefusedInfo, ResultsFromAHeapQueryBesideAnotherWithAFilter) {
  const Stage stage;
  EXPECT_EQ(refusal("CURRENT_ALLOC UNTRACKED", "TYPE=DATA"), "11112");
  EXPECT_EQ(refusal("PCT_SINCE_BASELINE CURRENT_HEAP", "TYPE=DATA"), "11112");
}

TEST(RefusedInfo, ReportsTheFilterFirstThenTheQueryThenBoth) {
  const Stage stage;
  EXPECT_EQ(refusal("NONSENSE", "TAG=ABC"), "11103");
  EXPECT_EQ(refusal("CURRENT_HEAP", "TAG=ABC"), "11103");
  EXPECT_EQ(refusal("CURRENT_HEAP NONSENSE", "TYPE=DATA"), "11102");
}

TEST(RefusedInfo, ResultsFromMoreThan256Characters) {
  const Stage stage;
  EXPECT_EQ(refusal("CURRENT_ALLOC" + std::string(243, ' '), ""), "answered");
  EXPECT_EQ(refusal("CURRENT_ALLOC" + std::string(244, ' '), ""), "11102");
  EXPECT_EQ(refusal("CURRENT_ALLOC", std::string(256, ' ')), "answered");
  EXPECT_EQ(refusal("CURRENT_ALLOC", std::string(257, ' ')), "11102");
}

/** A log of the lines that queries write. */
class InfoLog {
 public:
  InfoLog() { configure("DEBUG=qk_mem_info LOG=info.log FLUSH"); }
  [[nodiscard]] static std::string text() { return contents("info.log"); }
};

void ask(const char* query, const char* filter) {
  long answer = 0;
  (void)qk_mem_info(query, filter, &answer);
}

TEST(LoggedInfo, ShowsQueryFilterAndAnswer) {
  Stage stage;
  hold(stage.handle(1, 'D', "AB"), 0x1000, 'M', 1, 100).baselined = 1;
  const InfoLog log;
  ask("CURRENT_ALLOC", "TAG=ab AND TYPE=DATA");
  ask("current_ptrs,BASELINE_PTRS", "");
  stage.handle(1, 'D', "AB").base_amount = 150;
  ask("CHG_SINCE_BASELINE", "HANDLE=1");
  ask("", "");
  ask(nullptr, nullptr);
  EXPECT_EQ(log.text(),
            "   qk_mem_info:         Answer to CURRENT_ALLOC with TAG=ab AND TYPE=DATA is 100\n"
            "   qk_mem_info:         Answer to current_ptrs,BASELINE_PTRS with  is 1\n"
            "   qk_mem_info:         Answer to CHG_SINCE_BASELINE with HANDLE=1 is -50\n"
            "   qk_mem_info:         Answer to  with  is 0\n"
            "   qk_mem_info:         Answer to  with  is 0\n");
}

TEST(LoggedInfo, IsNothingIfTheQueryIsRefused) {
  const Stage stage;
  const InfoLog log;
  ask("NONSENSE", "");
  ask("CURRENT_ALLOC", "TAG=ABC");
  ask("CURRENT_HEAP", "TYPE=DATA");
  EXPECT_EQ(log.text(), "");
}

TEST(LoggedInfo, IsNothingWithoutDebugOfThisRoutine) {
  for (const char* debug : {"EXCEPTIONS CTRLBLKS SUMMARY TRACE", "DEBUG='not qk_mem_info'"}) {
    const Stage stage;
    configure((std::string(debug) + " LOG=info.log FLUSH").c_str());
    ask("CURRENT_ALLOC", "");
    EXPECT_EQ(contents("info.log"), "") << debug;
  }
}

TEST(InfoAfterOff, AnswersAsBefore) {
  Stage stage;
  hold(stage.handle(1), 0x1000, 'M', 1, 100);
  configure("OFF");
  long answer = 0;
  EXPECT_EQ(qk_mem_info("CURRENT_ALLOC", "", &answer), 0);
  EXPECT_EQ(answer, 100);
}

}  // namespace
