/** For test programs of GoogleTest. The library itself doesn't depend on it. */
#ifndef QKMEM_GTEST_HPP_
#define QKMEM_GTEST_HPP_

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>

#include "qkmem/no_growth.hpp"

#pragma GCC visibility push(default)

namespace qk {

/**
 * Fails each test at whose end a handle holds more than at its beginning, with the sites in its
 * message. Switches the profile on, unless QK_MEM_PROFILE has done so.
 *
 *   const bool is_watched = qk::fail_tests_that_grow();  // anywhere in the test program
 *
 * What a test leaves for later ones counts, as does a cache that is filled at its first use: fill
 * it before the tests, or leave it out by a filter. A test that has failed or was skipped is not
 * judged, because it may not have come to its end.
 */
class GrowthListener : public testing::EmptyTestEventListener {
 public:
  /** @param filter  as in qk_mem_growth(): which sites are watched. Null for all. */
  explicit GrowthListener(const char* filter = nullptr) : filter_(filter == nullptr ? "" : filter) {
    if (NoGrowth("probe").code() == 5000 + ENODATA) {
      qk_mem_profile_config("SITES REPORT=/dev/null");
    }
  }

  void OnTestStart(const testing::TestInfo& test) override {
    const std::string name = std::string(test.test_suite_name()) + "." + test.name();
    guard_.emplace(name.c_str(), filter_.c_str());
    if (guard_->code() != 0) {
      ADD_FAILURE_AT(test.file(), test.line()) << "The profile has no room for a snapshot";
    }
  }

  void OnTestEnd(const testing::TestInfo& test) override {
    const std::string report = guard_->report();
    guard_->stop();
    guard_.reset();
    if (report.empty() || !test.result()->Passed()) return;
    ADD_FAILURE_AT(test.file(), test.line()) << report;
  }

 private:
  std::string filter_;
  std::optional<NoGrowth> guard_;
};

/** Adds a GrowthListener to the test program. Returns true, to initialize a variable with. */
inline bool fail_tests_that_grow(const char* filter = nullptr) {
  testing::UnitTest::GetInstance()->listeners().Append(new GrowthListener(filter));
  return true;
}

}  // namespace qk

#pragma GCC visibility pop

#endif  // QKMEM_GTEST_HPP_
