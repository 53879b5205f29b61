#include "formats/digits.h"

#include <gtest/gtest.h>

#include <string>

#include "formats/little_endian.h"

namespace {

using qk::mem::are_digits;
using qk::mem::eight;
using qk::mem::eight_digits;

std::uint64_t values_of(const std::string& text) {
  return qk::mem::read_little<std::uint64_t>(text.data()) ^ eight('0');
}

TEST(Digits, AreReadEightAtOnce) {
  EXPECT_EQ(0U, eight_digits(values_of("00000000")));
  EXPECT_EQ(12345678U, eight_digits(values_of("12345678")));
  EXPECT_EQ(10203040U, eight_digits(values_of("10203040")));
  EXPECT_EQ(99999999U, eight_digits(values_of("99999999")));
  for (std::uint64_t number = 1; number < 100000000; number *= 10) {
    const std::string digits = std::to_string(number);
    EXPECT_EQ(number, eight_digits(values_of(std::string(8 - digits.size(), '0') + digits)));
  }
}

TEST(Digits, AreTheBytesFromZeroToNineAtEachPlace) {
  for (std::size_t place = 0; place < 8; ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      for (const char others : {'0', '9'}) {
        std::string text(8, others);
        text[place] = static_cast<char>(byte);
        EXPECT_EQ(byte >= '0' && byte <= '9', are_digits(values_of(text))) << place << ' ' << byte;
      }
    }
  }
}

}  // namespace
