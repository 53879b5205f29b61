// Tests that kit::sections_of() hides no error in a report.
#include <gtest/gtest.h>

#include <string>

#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::report;
using kit::sections;
using kit::sections_of;
using kit::Stage;

/** Reports with all headings and with empty sections. */
class SectionsOf : public ::testing::TestWithParam<unsigned> {
 protected:
  SectionsOf() {
    hold(stage_.handle(1, 'O'), 0x1010, 'M', 1, 40);
    hold(stage_.handle(2, 'O', "AB"), 0x1020, 'B', 1, 2048);
  }

  void expect_difference(const std::string& changed) {
    EXPECT_NE(sections_of(changed, options_), sections_) << changed;
  }

  Stage stage_;
  const unsigned options_ = GetParam();
  const std::string text_ = report("", options_);
  const std::string sections_ = sections("", options_);
};

INSTANTIATE_TEST_SUITE_P(Options, SectionsOf,
                         ::testing::Values(QK_MEM_DUMP_SUMMARY, QK_MEM_DUMP_MGMT,
                                           QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS, 0x3f,
                                           QK_MEM_DUMP_COMPARISON));

TEST_P(SectionsOf, ShowsEachByteThatChangesOrIsLost) {
  for (std::size_t i = 0; i < text_.size(); ++i) {
    std::string changed = text_;
    changed[i] = '#';
    expect_difference(changed);
    expect_difference(changed.erase(i, 1));
    expect_difference(text_.substr(0, i));
  }
}

TEST_P(SectionsOf, ShowsEachLineThatIsLostOrComesTwice) {
  for (std::size_t start = 0; start < text_.size();) {
    const std::size_t end = text_.find('\n', start) + 1;
    const std::string before = text_.substr(0, start);
    expect_difference(before + text_.substr(end));
    expect_difference(text_.substr(0, end) + text_.substr(start));
    start = end;
  }
}

}  // namespace
