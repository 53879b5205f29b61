#ifdef __SSE2__

#include "formats/digit_vectors.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

using qk::mem::ByteBlock;
using qk::mem::DigitVectors;
using Numbers = std::array<std::int32_t, 4>;

constexpr std::size_t kBytesInFront = 8;

/** A text that has enough bytes in front of it and behind it, none of which belong to a number. */
class Inside {
 public:
  explicit Inside(const std::string& text)
      : bytes_(std::string(kBytesInFront, '/') + text + std::string(kBytesInFront, ':')),
        size_(text.size()) {}

  operator std::string_view() const {  // NOLINT: used like its text
    return std::string_view(bytes_).substr(kBytesInFront, size_);
  }

 private:
  std::string bytes_;
  std::size_t size_;
};

bool is_signed_number(const std::string& text) {
  DigitVectors vectors;
  (void)vectors.take_signed(Inside("1"), Inside(text));
  return vectors.are_numbers();
}

bool is_unsigned_number(const std::string& text) {
  DigitVectors vectors;
  (void)vectors.take_unsigned(Inside(text), Inside("1"));
  DigitVectors at_begin;
  (void)at_begin.take_at_begin(Inside("1"), Inside(text));
  EXPECT_EQ(vectors.are_numbers(), at_begin.are_numbers()) << text;
  return vectors.are_numbers();
}

TEST(ByteBlock, KnowsWhichBytesHaveAValue) {
  std::string bytes(ByteBlock::kSize, '\t');
  EXPECT_EQ(~std::uint64_t{0}, ByteBlock(bytes.data()).with('\t'));
  EXPECT_EQ(0U, ByteBlock(bytes.data()).with('\n'));
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    bytes[at] = '\xFF';
    EXPECT_EQ(std::uint64_t{1} << at, ByteBlock(bytes.data()).with('\xFF'));
    EXPECT_EQ(~(std::uint64_t{1} << at), ByteBlock(bytes.data()).with('\t'));
    bytes[at] = '\t';
  }
}

TEST(DigitVectors, ReadFourNumbersOfOneToEightBytes) {
  DigitVectors vectors;
  const auto first = vectors.take_signed(Inside("-1234567"), Inside("12345678"));
  const auto second = vectors.take_signed(Inside("0"), Inside("-9"));
  EXPECT_EQ((Numbers{-1234567, 12345678, 0, -9}), DigitVectors::numbers_of(first, second));
  const auto third = vectors.take_unsigned(Inside("99999999"), Inside("10"));
  const auto fourth = vectors.take_at_begin(Inside("765"), Inside("87654321"));
  EXPECT_EQ((Numbers{99999999, 10, 765, 87654321}), DigitVectors::numbers_of(third, fourth));
  EXPECT_TRUE(vectors.are_numbers());
}

TEST(DigitVectors, TakeASignOnlyInFrontOfASignedNumber) {
  for (const char* text : {"-1", "-0", "-1234567", "-00"}) EXPECT_TRUE(is_signed_number(text));
  for (const char* text : {"-", "--1", "1-", "1-1", "-1-", "0-1", "1234-678", "+1"}) {
    EXPECT_FALSE(is_signed_number(text)) << text;
  }
  for (const char* text : {"-1", "-", "1-"}) EXPECT_FALSE(is_unsigned_number(text)) << text;
}

TEST(DigitVectors, TakeNothingButDigitsAtAnyPlace) {
  for (std::size_t size = 1; size <= DigitVectors::kMostDigits; ++size) {
    for (std::size_t place = 0; place < size; ++place) {
      for (int byte = 0; byte < 256; ++byte) {
        std::string text(size, '9');
        text[place] = static_cast<char>(byte);
        const bool is_digit = byte >= '0' && byte <= '9';
        const bool is_sign = byte == '-' && place == 0 && size > 1;
        ASSERT_EQ(is_digit, is_unsigned_number(text)) << size << ' ' << place << ' ' << byte;
        ASSERT_EQ(is_digit || is_sign, is_signed_number(text)) << text;
      }
    }
  }
}

TEST(DigitVectors, ReadSixteenHexadecimalDigitsInLowerCase) {
  DigitVectors vectors;
  EXPECT_EQ(0x0123456789abcdefU, vectors.take_hexadecimal("0123456789abcdef"));
  EXPECT_EQ(0xfedcba9876543210U, vectors.take_hexadecimal("fedcba9876543210"));
  EXPECT_TRUE(vectors.are_numbers());
  for (std::size_t place = 0; place < 16; ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string text(16, 'f');
      text[place] = static_cast<char>(byte);
      DigitVectors one;
      (void)one.take_hexadecimal(text.data());
      const bool is_digit = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'f');
      ASSERT_EQ(is_digit, one.are_numbers()) << place << ' ' << byte;
    }
  }
}

TEST(DigitVectors, RememberWhatWasNoNumber) {
  DigitVectors vectors;
  (void)vectors.take_unsigned(Inside("1x"), Inside("1"));
  (void)vectors.take_unsigned(Inside("1"), Inside("1"));
  (void)vectors.take_hexadecimal("0123456789abcdef");
  EXPECT_FALSE(vectors.are_numbers());
}

}  // namespace

#endif  // __SSE2__
