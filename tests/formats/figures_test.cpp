#include "formats/figures.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using qk::mem::count_change_figure;
using qk::mem::count_figure;
using qk::mem::duration_figure;
using qk::mem::percent_figure;
using qk::mem::size_change_figure;
using qk::mem::size_figure;

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kMiB = 1024 * kKiB;
constexpr std::uint64_t kGiB = 1024 * kMiB;
constexpr std::uint64_t kEiB = 1024 * 1024 * 1024 * kGiB;

constexpr std::uint64_t kMicrosecond = 1000;
constexpr std::uint64_t kMillisecond = 1000 * kMicrosecond;
constexpr std::uint64_t kSecond = 1000 * kMillisecond;
constexpr std::uint64_t kMinute = 60 * kSecond;
constexpr std::uint64_t kHour = 60 * kMinute;

struct Case {
  std::uint64_t number;
  const char* text;
};

TEST(CountFigure, HasCommasBetweenThousands) {
  const Case cases[] = {{0, "0"},
                        {7, "7"},
                        {999, "999"},
                        {1000, "1,000"},
                        {1040, "1,040"},
                        {181020, "181,020"},
                        {1000000, "1,000,000"},
                        {1002003, "1,002,003"},
                        {UINT64_MAX, "18,446,744,073,709,551,615"}};
  for (const Case& c : cases) EXPECT_EQ(count_figure(c.number).text(), c.text);
}

TEST(ChangeFigures, HaveASignUnlessNothingHasChanged) {
  EXPECT_EQ("+1,040", count_change_figure(1040).text());
  EXPECT_EQ("-7", count_change_figure(-7).text());
  EXPECT_EQ("0", count_change_figure(0).text());
  EXPECT_EQ("-9,223,372,036,854,775,808", count_change_figure(INT64_MIN).text());
  EXPECT_EQ("+1.5 KiB", size_change_figure(1536).text());
  EXPECT_EQ("-1.5 KiB", size_change_figure(-1536).text());
  EXPECT_EQ("0 B", size_change_figure(0).text());
  EXPECT_EQ("-8.0 EiB", size_change_figure(INT64_MIN).text());
}

TEST(SizeFigure, IsInTheLargestUnitThatFits) {
  const Case cases[] = {{0, "0 B"},
                        {1, "1 B"},
                        {1023, "1,023 B"},
                        {kKiB, "1.0 KiB"},
                        {kKiB + kKiB / 2, "1.5 KiB"},
                        {3 * kMiB + 300 * kKiB, "3.3 MiB"},
                        {kGiB, "1.0 GiB"},
                        {1000 * kMiB, "1,000.0 MiB"},
                        {1024 * kGiB, "1.0 TiB"},
                        {1024 * 1024 * kGiB, "1.0 PiB"},
                        {kEiB, "1.0 EiB"},
                        {UINT64_MAX, "16.0 EiB"}};
  for (const Case& c : cases) EXPECT_EQ(size_figure(c.number).text(), c.text);
}

TEST(SizeFigure, RoundsHalvesUp) {
  EXPECT_EQ(size_figure(kKiB + 51).text(), "1.0 KiB");         // 1.0498
  EXPECT_EQ(size_figure(kKiB + 52).text(), "1.1 KiB");         // 1.0508
  EXPECT_EQ(size_figure(20 * kKiB + 256).text(), "20.3 KiB");  // 20.25
  EXPECT_EQ(size_figure(15 * kEiB + kEiB / 4 - 1).text(), "15.2 EiB");
  EXPECT_EQ(size_figure(15 * kEiB + kEiB / 4).text(), "15.3 EiB");
}

TEST(SizeFigure, TakesTheNextUnitIfRoundingReachesIt) {
  EXPECT_EQ(size_figure(kMiB - 52).text(), "1,023.9 KiB");
  EXPECT_EQ(size_figure(kMiB - 51).text(), "1.0 MiB");
  EXPECT_EQ(size_figure(kMiB - 1).text(), "1.0 MiB");
  EXPECT_EQ(size_figure(kEiB - 1).text(), "1.0 EiB");
}

TEST(PercentFigure, IsRoundedToTheNearest) {
  EXPECT_EQ(percent_figure(39, 100).text(), "39%");
  EXPECT_EQ(percent_figure(1, 3).text(), "33%");
  EXPECT_EQ(percent_figure(2, 3).text(), "67%");
  EXPECT_EQ(percent_figure(5, 1000).text(), "<1%");
  EXPECT_EQ(percent_figure(15, 1000).text(), "2%");
  EXPECT_EQ(percent_figure(3, 2).text(), "150%");
  EXPECT_EQ(percent_figure(UINT64_MAX / 2, UINT64_MAX).text(), "50%");
  EXPECT_EQ(percent_figure(UINT64_MAX, 100).text(), "18,446,744,073,709,551,615%");
}

TEST(PercentFigure, EndsAtTheLargestNumber) {
  EXPECT_EQ(percent_figure(UINT64_MAX, 1).text(), "18,446,744,073,709,551,615%");
  EXPECT_EQ(percent_figure(UINT64_MAX, 99).text(), "18,446,744,073,709,551,615%");
}

TEST(PercentFigure, IsZeroForNothingOnly) {
  EXPECT_EQ(percent_figure(0, 100).text(), "0%");
  EXPECT_EQ(percent_figure(1, UINT64_MAX).text(), "<1%");
  EXPECT_EQ(percent_figure(99, 10000).text(), "<1%");
  EXPECT_EQ(percent_figure(100, 10000).text(), "1%");
  EXPECT_EQ(percent_figure(1, 101).text(), "<1%");
  EXPECT_EQ(percent_figure(1, 100).text(), "1%");
  EXPECT_EQ(percent_figure(2, 101).text(), "2%");
}

TEST(PercentFigure, IsHundredForAllOnly) {
  EXPECT_EQ(percent_figure(9999, 10000).text(), "99%");
  EXPECT_EQ(percent_figure(UINT64_MAX - 1, UINT64_MAX).text(), "99%");
  EXPECT_EQ(percent_figure(10000, 10000).text(), "100%");
  EXPECT_EQ(percent_figure(UINT64_MAX, UINT64_MAX).text(), "100%");
}

TEST(PercentFigure, IsADashForAPartOfNothing) {
  EXPECT_EQ(percent_figure(1, 0).text(), "-");
  EXPECT_EQ(percent_figure(0, 0).text(), "0%");
}

TEST(DurationFigure, HasOneDecimalBelowAMinute) {
  const Case cases[] = {{0, "0 ns"},
                        {812, "812 ns"},
                        {kMicrosecond, "1.0 us"},
                        {3100, "3.1 us"},
                        {3100 * kMicrosecond, "3.1 ms"},
                        {kSecond, "1.0 s"},
                        {12400 * kMillisecond, "12.4 s"},
                        {12449 * kMillisecond, "12.4 s"},
                        {12450 * kMillisecond, "12.5 s"}};
  for (const Case& c : cases) EXPECT_EQ(duration_figure(c.number).text(), c.text);
}

TEST(DurationFigure, HasTwoUnitsFromAMinuteOn) {
  const Case cases[] = {{kMinute, "1 min 0 s"},       {2 * kMinute + 5 * kSecond, "2 min 5 s"},
                        {kHour, "1 h 0 min"},         {3 * kHour + 12 * kMinute, "3 h 12 min"},
                        {24 * kHour, "1 d 0 h"},      {124 * kHour, "5 d 4 h"},
                        {UINT64_MAX, "213,504 d 0 h"}};
  for (const Case& c : cases) EXPECT_EQ(duration_figure(c.number).text(), c.text);
}

TEST(DurationFigure, TakesTheNextUnitIfRoundingReachesIt) {
  const Case cases[] = {{999949, "999.9 us"},
                        {999950, "1.0 ms"},
                        {kSecond - 1, "1.0 s"},
                        {kMinute - 51 * kMillisecond, "59.9 s"},
                        {kMinute - 50 * kMillisecond, "1 min 0 s"},
                        {2 * kMinute - 1, "2 min 0 s"},
                        {kHour - kSecond, "59 min 59 s"},
                        {kHour - 1, "1 h 0 min"},
                        {24 * kHour - 1, "1 d 0 h"},
                        {48 * kHour - 1, "2 d 0 h"}};
  for (const Case& c : cases) EXPECT_EQ(duration_figure(c.number).text(), c.text);
}

}  // namespace
