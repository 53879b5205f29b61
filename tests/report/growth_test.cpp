#include "report/growth.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "accounting/kept_calls.h"

namespace {

struct Row {
  unsigned long base;
  unsigned long current;
  const char* text;
};

std::string growth(unsigned long base, unsigned long current) {
  char text[64];
  return qk_mem_growth_string(base, current, text);
}

void expect_growth(const Row& row) {
  EXPECT_EQ(growth(row.base, row.current), row.text) << row.base << " to " << row.current;
}

TEST(GrowthText, IsNotAvailableFromZero) {
  EXPECT_EQ(growth(0, 0), "  n/a      n/a");
  EXPECT_EQ(growth(0, 1), "  n/a      n/a");
  EXPECT_EQ(growth(0, UINT64_MAX), "  n/a      n/a");
}

TEST(GrowthText, ShowsTwoDecimalsBelowTenPercent) {
  constexpr Row kRows[] = {
      {1000, 1000, " 0.00%        0"},
      {1000, 1050, " 5.00%       50"},
      {10000, 10999, " 9.99%      999"},
      {1000000000, 1012345678, " 1.23% 12345678"},
      {10000000000, 10123456789, " 1.23%123456789"},
  };
  for (const Row& row : kRows) expect_growth(row);
}

TEST(GrowthText, ShowsNoDecimalsFromTenPercentOn) {
  constexpr Row kRows[] = {
      {1000, 1100, "   10%      100"},  {1000, 1200, "   20%      200"},
      {1000, 1106, "   11%      106"},  {1000, 2000, "  100%     1000"},
      {1, 100000, "9999900%    99999"}, {8, 9, "   12%        1"},
      {1, 1000, "99900%      999"},     {1000, 1000000000, "99999900%999999000"},
  };
  for (const Row& row : kRows) expect_growth(row);
}

TEST(GrowthText, IsComparedWithTenBeforeItIsRounded) {
  expect_growth({1000000, 1099990, "10.00%    99990"});
  expect_growth({1000000, 1100000, "   10%   100000"});
}

TEST(GrowthText, ShowsADecreaseAsItsTwosComplement) {
  constexpr Row kRows[] = {
      {1000, 990, "-1.00%18446744073709551606"},
      {1000, 900, "-10.00%18446744073709551516"},
      {1000, 0, "-100.00%18446744073709550616"},
  };
  for (const Row& row : kRows) expect_growth(row);
}

TEST(GrowthText, WidensWithAnAmountOfTenDigits) {
  expect_growth({10000000000, 11000000000, "   10%1000000000"});
}

TEST(GrowthText, TreatsTheBaseAsUnsignedTheDifferenceAsSigned) {
  expect_growth({0x8000000000000000, 0xc000000000000000, "   50%4611686018427387904"});
  expect_growth({0x8000000000000000, 0, "-100.00%9223372036854775808"});
  expect_growth({1, UINT64_MAX, "-200.00%18446744073709551614"});
}

TEST(GrowthText, IsReturnedInTheCallersBuffer) {
  char text[64];
  EXPECT_EQ(qk_mem_growth_string(0, 1, text), text);
  EXPECT_EQ(qk_mem_growth_string(1, 1, text), text);
}

TEST(LocationText, IsFileAndLine) {
  char text[64];
  EXPECT_EQ(qk_mem_location_string("app.c", 12, text), text);
  EXPECT_STREQ(text, "app.c:12");
  EXPECT_STREQ(qk_mem_location_string("", 0, text), ":0");
}

TEST(LocationText, KeepsFoldersAndSigns) {
  char text[64];
  EXPECT_STREQ(qk_mem_location_string("src/deep/app.c", 70000, text), "src/deep/app.c:70000");
  EXPECT_STREQ(qk_mem_location_string("app.c", -1, text), "app.c:-1");
}

TEST(LocationText, IsWrittenInFullAtAnyLength) {
  char text[128];
  EXPECT_STREQ(
      qk_mem_location_string("a_name_that_no_row_of_a_report_would_ever_show_whole.cpp", 1, text),
      "a_name_that_no_row_of_a_report_would_ever_show_whole.cpp:1");
}

}  // namespace
