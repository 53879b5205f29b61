#include "formats/trace_row.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "formats/trace_columns.h"

namespace {

using qk::mem::TraceAddress;
using qk::mem::TraceColumn;
using qk::mem::TraceRow;
using std::string_literals::operator""s;

std::string written(const TraceRow& row, int address_digits = 16) {
  qk::Line line;
  put_trace_row(row, address_digits, line);
  return std::string(line.finish());
}

TEST(TraceColumns, HaveAHeadingEachAndNumbersFromOne) {
  const struct {
    TraceColumn column;
    int number;
    const char* heading;
  } columns[] = {
      {TraceColumn::kSequence, 1, "Sequence"},
      {TraceColumn::kHandle, 2, "Handle"},
      {TraceColumn::kType, 3, "Type"},
      {TraceColumn::kAddress, 4, "Address"},
      {TraceColumn::kNum, 5, "Num"},
      {TraceColumn::kSize, 6, "Size"},
      {TraceColumn::kHandleSize, 7, "Handle Size"},
      {TraceColumn::kFile, 8, "File"},
      {TraceColumn::kLine, 9, "Line"},
      {TraceColumn::kCurrent, 10, "Current"},
      {TraceColumn::kHeap, 11, "Heap"},
      {TraceColumn::kUnknown, 12, "Unknown"},
      {TraceColumn::kChange, 13, "Change"},
      {TraceColumn::kGrowth, 14, "Growth"},
      {TraceColumn::kDifference, 15, "Difference"},
  };
  for (const auto& [column, number, heading] : columns) {
    EXPECT_EQ(heading_of(column), heading);
    EXPECT_EQ(number_of(column), number);
  }
}

TEST(TraceHeadings, AreOneLine) {
  qk::Line line;
  qk::mem::put_trace_headings(line);
  EXPECT_EQ(
      line.finish(),
      "Sequence\tHandle\tType\tAddress\tNum\tSize\tHandle Size\tFile\tLine\tCurrent\tHeap\tUnknown\tChange\tGrowth\tDifference\n");
}

/** A row with the number of each column in it, one of them negative. */
TraceRow numbered_row(std::string_view file) {
  return {.sequence = 1,
          .handle = 2,
          .type = 'C',
          .address = TraceAddress{0x4a},
          .num = 5,
          .size = 6,
          .handle_size = 7,
          .file = file,
          .line = 9,
          .current = 10,
          .heap = 11,
          .unknown = 12,
          .change = -13,
          .growth = 14,
          .difference = 15};
}

TEST(TraceRow, IsWrittenInTheOrderOfTheHeadings) {
  EXPECT_EQ(written(numbered_row("eight.c")),
            "1\t2\tC\t000000000000004a\t5\t6\t7\teight.c\t9\t10\t11\t12\t-13\t14\t15\n");
}

TEST(TraceRow, HasTheLargestNumbersInFull) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(
      written({.sequence = UINT32_MAX,
               .handle = INT32_MAX,
               .type = 255,
               .address = TraceAddress{UINT64_MAX},
               .num = UINT64_MAX,
               .size = UINT64_MAX,
               .handle_size = UINT64_MAX,
               .file = "a.c",
               .line = INT32_MAX,
               .current = kMost,
               .heap = kMost,
               .unknown = kMost,
               .change = kMost,
               .growth = kMost,
               .difference = kMost}),
      "4294967295\t2147483647\t\xff\tffffffffffffffff\t18446744073709551615\t18446744073709551615\t"
      "18446744073709551615\ta.c\t2147483647\t9223372036854775807\t9223372036854775807\t"
      "9223372036854775807\t9223372036854775807\t9223372036854775807\t9223372036854775807\n");
}

TEST(TraceRow, HasTheSmallestNumbersInFull) {
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(written({.handle = INT32_MIN,
                     .line = INT32_MIN,
                     .current = kLeast,
                     .heap = kLeast,
                     .unknown = kLeast,
                     .change = kLeast,
                     .growth = kLeast,
                     .difference = kLeast}),
            "0\t-2147483648\t\0\t0000000000000000\t0\t0\t0\t\t-2147483648\t-9223372036854775808\t"
            "-9223372036854775808\t-9223372036854775808\t-9223372036854775808\t"
            "-9223372036854775808\t-9223372036854775808\n"s);
}

TEST(TraceRow, HasItsTypeAsTheByteItself) {
  EXPECT_EQ(written({.type = '\0'}).substr(0, 7), "0\t0\t\0\t0"s);
  EXPECT_EQ(written({.type = '\t'}).substr(0, 7), "0\t0\t\t\t0");
  EXPECT_EQ(written({.type = '\n'}).substr(0, 7), "0\t0\t\n\t0");
}

TEST(TraceRow, PadsAddressesToTheRequestedDigits) {
  const struct {
    std::uint64_t address;
    int digits;
    const char* row;
  } rows[] = {
      {0x1a2b, 12, "0\t0\tM\t000000001a2b\t0\t0\t0\t\t0\t0\t0\t0\t0\t0\t0\n"},
      {0x1a2b, 20, "0\t0\tM\t00000000000000001a2b\t0\t0\t0\t\t0\t0\t0\t0\t0\t0\t0\n"},
      {0x1a2b, 2, "0\t0\tM\t1a2b\t0\t0\t0\t\t0\t0\t0\t0\t0\t0\t0\n"},
      {0x1a2b, 0, "0\t0\tM\t1a2b\t0\t0\t0\t\t0\t0\t0\t0\t0\t0\t0\n"},
      {0, 0, "0\t0\tM\t\t0\t0\t0\t\t0\t0\t0\t0\t0\t0\t0\n"},
      {0, -16, "0\t0\tM\t0\t0\t0\t0\t\t0\t0\t0\t0\t0\t0\t0\n"},
  };
  for (const auto& [address, digits, row] : rows) {
    EXPECT_EQ(written({.type = 'M', .address = TraceAddress{address}}, digits), row);
  }
}

TEST(TraceRow, HasAllItsColumnsHoweverLongItsFileIs) {
  for (std::size_t length = 0; length < 1000; ++length) {
    const std::string file(length, 'f');
    const std::string row =
        "1\t2\tC\t000000000000004a\t5\t6\t7\t" + file + "\t9\t10\t11\t12\t-13\t14\t15\n";
    ASSERT_EQ(written(numbered_row(file)), row.size() <= 1023 ? row : row.substr(0, 1022) + "\n");
  }
}

TEST(TraceRow, IsCutIfTooLongButKeepsItsNewline) {
  const std::string file(2000, 'f');
  const std::string row = written({.type = 'M', .file = file});
  EXPECT_EQ(row.size(), 1023U);
  EXPECT_EQ(row.substr(1020), "ff\n");
  EXPECT_EQ(written({.type = 'M', .address = TraceAddress{0x4a}}, 1100),
            "0\t0\tM\t" + std::string(1016, '0') + "\n");
}

}  // namespace
