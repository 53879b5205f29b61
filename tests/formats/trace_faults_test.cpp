// What the reader of trace files reports about broken lines.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tests/formats/trace_text.h"
#include "tests/kit/trace.h"

namespace {

using kit::Trace;
using std::string_literals::operator""s;
using trace_text::kHeadings;
using trace_text::kWhole;
using trace_text::kWholeRow;
using trace_text::with;
using Faults = std::vector<std::string>;

/** The fault of the one broken line in a text. The one complete row must be read. */
std::string fault_in(const std::string& text) {
  const Trace trace(text);
  EXPECT_EQ(trace.rows, std::vector{kWholeRow}) << text;
  EXPECT_EQ(trace.faults.size(), 1U) << text;
  return trace.faults.empty() ? "" : trace.faults[0];
}

std::string fault_of(const std::string& row) { return fault_in(kHeadings + row + kWhole); }

std::string fault_at_end(const std::string& row) { return fault_in(kHeadings + kWhole + row); }

std::string fault_of_headings(const std::string& line) { return fault_in(line + kWhole); }

TEST(TraceFaults, CountLinesLikeEditorsEvenIfATypeIsANewline) {
  const Trace trace(kHeadings + "x\n" + kWhole + "x\n" + with(3, "\n") + "x\n" + with(3, "\t") +
                    "x\n");
  EXPECT_EQ(trace.rows.size(), 3U);
  EXPECT_EQ(trace.faults, (Faults{"line 2, column 1 (Sequence): the row ends here",
                                  "line 4, column 1 (Sequence): the row ends here",
                                  "line 7, column 1 (Sequence): the row ends here",
                                  "line 9, column 1 (Sequence): the row ends here"}));
}

TEST(TraceFaults, NameTheFirstLineOfARowWithANewlineType) {
  EXPECT_EQ(Trace(kHeadings + "1\t2\t\n\tff\tx\t4\t5\ta.c\t6\t7\t8\t9\t10\t11\t12\nx\n").faults,
            (Faults{"line 2, column 5 (Num): not a number",
                    "line 4, column 1 (Sequence): the row ends here"}));
}

TEST(TraceFaults, NameTheColumnThatIsNotANumber) {
  const struct {
    int column;
    const char* message;
  } columns[] = {
      {1, "line 2, column 1 (Sequence): not a number"},
      {2, "line 2, column 2 (Handle): not a number"},
      {4, "line 2, column 4 (Address): not a number"},
      {5, "line 2, column 5 (Num): not a number"},
      {6, "line 2, column 6 (Size): not a number"},
      {7, "line 2, column 7 (Handle Size): not a number"},
      {9, "line 2, column 9 (Line): not a number"},
      {10, "line 2, column 10 (Current): not a number"},
      {11, "line 2, column 11 (Heap): not a number"},
      {12, "line 2, column 12 (Unknown): not a number"},
      {13, "line 2, column 13 (Change): not a number"},
      {14, "line 2, column 14 (Growth): not a number"},
      {15, "line 2, column 15 (Difference): not a number"},
  };
  for (const auto& [column, message] : columns) {
    for (const char* text : {"x", "-", "--1", "+1", " 1", "1 ", "1x", "0x1", "1.0", "1\r",
                             "99999999999999999999999x"}) {
      EXPECT_EQ(fault_of(with(column, text)), message) << text;
    }
    EXPECT_EQ(fault_of(with(column, "1\0"s)), message);
    if (column == 4) continue;  // null may have no digits
    EXPECT_EQ(fault_of(with(column, "")), message);
  }
}

TEST(TraceFaults, IncludeSignsInUnsignedColumns) {
  EXPECT_EQ(fault_of(with(1, "-1")), "line 2, column 1 (Sequence): not a number");
  EXPECT_EQ(fault_of(with(4, "-1")), "line 2, column 4 (Address): not a number");
  EXPECT_EQ(fault_of(with(5, "-1")), "line 2, column 5 (Num): not a number");
  EXPECT_EQ(fault_of(with(6, "-1")), "line 2, column 6 (Size): not a number");
  EXPECT_EQ(fault_of(with(7, "-1")), "line 2, column 7 (Handle Size): not a number");
}

TEST(TraceFaults, NameTheColumnWhoseNumberIsOutOfRange) {
  const struct {
    int column;
    const char* text;
    const char* message;
  } rows[] = {
      {1, "4294967296", "line 2, column 1 (Sequence): number out of range"},
      {2, "2147483648", "line 2, column 2 (Handle): number out of range"},
      {2, "-2147483649", "line 2, column 2 (Handle): number out of range"},
      {4, "10000000000000000", "line 2, column 4 (Address): number out of range"},
      {5, "18446744073709551616", "line 2, column 5 (Num): number out of range"},
      {6, "18446744073709551616", "line 2, column 6 (Size): number out of range"},
      {7, "18446744073709551616", "line 2, column 7 (Handle Size): number out of range"},
      {9, "2147483648", "line 2, column 9 (Line): number out of range"},
      {9, "-2147483649", "line 2, column 9 (Line): number out of range"},
      {10, "9223372036854775808", "line 2, column 10 (Current): number out of range"},
      {11, "-9223372036854775809", "line 2, column 11 (Heap): number out of range"},
      {12, "9223372036854775808", "line 2, column 12 (Unknown): number out of range"},
      {13, "-9223372036854775809", "line 2, column 13 (Change): number out of range"},
      {14, "9223372036854775808", "line 2, column 14 (Growth): number out of range"},
      {15, "-9223372036854775809", "line 2, column 15 (Difference): number out of range"},
  };
  for (const auto& [column, text, message] : rows) {
    EXPECT_EQ(fault_of(with(column, text)), message);
  }
}

TEST(TraceFaults, IncludeATypeThatIsNotOneByte) {
  for (const char* text : {"", "MM", "calloc", "é"}) {
    EXPECT_EQ(fault_of(with(3, text)), "line 2, column 3 (Type): not one byte") << text;
  }
}

TEST(TraceFaults, NameTheColumnInWhichARowEnds) {
  const struct {
    const char* row;
    const char* message;
  } rows[] = {
      {"\n", "line 2, column 1 (Sequence): the row ends here"},
      {"1\n", "line 2, column 1 (Sequence): the row ends here"},
      {"1\t2\n", "line 2, column 2 (Handle): the row ends here"},
      {"1\t2\t\n", "line 2, column 3 (Type): the row ends here"},
      {"1\t2\tM\n", "line 2, column 3 (Type): the row ends here"},
      {"1\t2\t\t\n", "line 2, column 3 (Type): the row ends here"},
      {"1\t2\tM\tff\n", "line 2, column 4 (Address): the row ends here"},
      {"1\t2\tM\tff\t\n", "line 2, column 5 (Num): the row ends here"},
      {"1\t2\tM\tff\t3\t4\n", "line 2, column 6 (Size): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\n", "line 2, column 7 (Handle Size): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\n", "line 2, column 8 (File): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\n", "line 2, column 9 (Line): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\n", "line 2, column 10 (Current): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t-\n", "line 2, column 11 (Heap): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8\t9\n", "line 2, column 12 (Unknown): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8\t9\t10\n",
       "line 2, column 13 (Change): the row ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8\t9\t10\t11\n",
       "line 2, column 14 (Growth): the row ends here"},
  };
  for (const auto& [row, message] : rows) EXPECT_EQ(fault_of(row), message) << row;
}

TEST(TraceFaults, NameTheColumnInWhichTheFileEnds) {
  const struct {
    const char* row;
    const char* message;
  } rows[] = {
      {"1", "line 3, column 1 (Sequence): the file ends here"},
      {"1\t", "line 3, column 2 (Handle): the file ends here"},
      {"1\t-", "line 3, column 2 (Handle): the file ends here"},
      {"1\t2\t", "line 3, column 3 (Type): the file ends here"},
      {"1\t2\tM", "line 3, column 3 (Type): the file ends here"},
      {"1\t2\t\n\t", "line 3, column 4 (Address): the file ends here"},
      {"1\t2\tM\tff", "line 3, column 4 (Address): the file ends here"},
      {"1\t2\tM\tff\t3", "line 3, column 5 (Num): the file ends here"},
      {"1\t2\tM\tff\t3\t4", "line 3, column 6 (Size): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5", "line 3, column 7 (Handle Size): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta", "line 3, column 8 (File): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6", "line 3, column 9 (Line): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7", "line 3, column 10 (Current): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8", "line 3, column 11 (Heap): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8\t9", "line 3, column 12 (Unknown): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8\t9\t10", "line 3, column 13 (Change): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8\t9\t10\t11",
       "line 3, column 14 (Growth): the file ends here"},
      {"1\t2\tM\tff\t3\t4\t5\ta\t6\t7\t8\t9\t10\t11\t12",
       "line 3, column 15 (Difference): the file ends here"},
  };
  for (const auto& [row, message] : rows) EXPECT_EQ(fault_at_end(row), message) << row;
}

TEST(TraceFaults, IncludeTextAfterTheLastColumn) {
  for (const char* text : {"12\t", "12\t13", "\t", "x\ty"}) {
    EXPECT_EQ(fault_of(with(15, text)),
              "line 2, column 15 (Difference): more behind the last column");
  }
}

TEST(TraceFaults, NameOnlyTheFirstFaultOfARow) {
  EXPECT_EQ(fault_of("1\tx\tMM\tg\t3\t4\n"), "line 2, column 2 (Handle): not a number");
}

TEST(TraceFaults, IncludeMissingHeadings) {
  EXPECT_EQ(Trace("").faults, Faults{"line 1, column 1 (Sequence): the file ends here"});
  EXPECT_EQ(fault_of_headings("\n"), "line 1, column 1 (Sequence): the row ends here");
  EXPECT_EQ(fault_of_headings(kWhole), "line 1, column 1 (Sequence): not this heading");
  EXPECT_EQ(fault_of_headings("Sequence\tHandle\tType\t\n"),
            "line 1, column 4 (Address): the row ends here");
  EXPECT_EQ(Trace(kHeadings.substr(0, kHeadings.size() - 1)).faults,
            Faults{"line 1, column 15 (Difference): the file ends here"});
}

TEST(TraceFaults, NameTheColumnOfAWrongHeading) {
  const struct {
    const char* heading;
    const char* message;
  } headings[] = {
      {"Sequence", "line 1, column 1 (Sequence): not this heading"},
      {"Handle", "line 1, column 2 (Handle): not this heading"},
      {"Type", "line 1, column 3 (Type): not this heading"},
      {"Address", "line 1, column 4 (Address): not this heading"},
      {"Num", "line 1, column 5 (Num): not this heading"},
      {"Size", "line 1, column 6 (Size): not this heading"},
      {"Handle Size", "line 1, column 7 (Handle Size): not this heading"},
      {"File", "line 1, column 8 (File): not this heading"},
      {"Line", "line 1, column 9 (Line): not this heading"},
      {"Current", "line 1, column 10 (Current): not this heading"},
      {"Heap", "line 1, column 11 (Heap): not this heading"},
      {"Unknown", "line 1, column 12 (Unknown): not this heading"},
      {"Change", "line 1, column 13 (Change): not this heading"},
      {"Growth", "line 1, column 14 (Growth): not this heading"},
      {"Difference", "line 1, column 15 (Difference): not this heading"},
  };
  for (const auto& [heading, message] : headings) {
    std::string line = kHeadings;
    line[line.find(heading)] = '?';
    EXPECT_EQ(fault_of_headings(line), message);
  }
  EXPECT_EQ(fault_of_headings(kHeadings.substr(0, kHeadings.size() - 1) + "\tMore\n"),
            "line 1, column 15 (Difference): more behind the last column");
}

TEST(TraceFaults, IncludeCarriageReturns) {
  const auto ended = [](const std::string& line) {
    return line.substr(0, line.size() - 1) + "\r\n";
  };
  EXPECT_EQ(Trace(ended(kHeadings) + ended(kWhole)).faults,
            (Faults{"line 1, column 15 (Difference): not this heading",
                    "line 2, column 15 (Difference): not a number"}));
}

}  // namespace
