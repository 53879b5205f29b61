#include "support/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

int bounded(char* buffer, std::size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

int bounded(char* buffer, std::size_t size, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = qk_vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

TEST(Format, SupportsTheModifiersOfSizes) {
  char buffer[128];
  const auto address = static_cast<std::size_t>(0x7f00deadbeef);
  EXPECT_EQ(qk_sprintf(buffer, "%zu %zd [%.*zx] %9zu", SIZE_MAX, std::ptrdiff_t{-1}, 16, address,
                       std::size_t{42}),
            52);
  EXPECT_STREQ(buffer, "18446744073709551615 -1 [00007f00deadbeef]        42");
}

TEST(Format, FormatsPercentagesAndText) {
  char buffer[128];
  EXPECT_EQ(qk_sprintf(buffer, "%5.2f%% %5.0f%% %-5s|%c", 9.996, -12.5, "ab", 'x'), 21);
  EXPECT_STREQ(buffer, "10.00%   -12% ab   |x");
}

TEST(Format, CutsAtTheSizeAndReturnsTheFullLength) {
  char buffer[8] = "1234567";
  EXPECT_EQ(bounded(buffer, 5, "%s", "abcdefgh"), 8);
  EXPECT_EQ(std::string(buffer, 8), std::string("abcd\0"
                                                "67\0",
                                                8));
  EXPECT_EQ(bounded(buffer, sizeof buffer, "%s", "abcdefg"), 7);
  EXPECT_STREQ(buffer, "abcdefg");
  EXPECT_EQ(bounded(nullptr, 0, "%d", 12345), 5);
}

}  // namespace
