#include "support/line.h"

#include <array>
#include <cstring>

namespace qk {
namespace {

/** All numbers of two digits, "00" to "99". */
constexpr auto kPairs = [] {
  std::array<char, 200> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

/** Writes the decimal digits of a number so that they end at `end`. Returns the first one. */
char* write_digits(std::uint64_t value, char* end) noexcept {
  for (; value >= 100; value /= 100) {
    end -= 2;
    std::memcpy(end, &kPairs[2 * (value % 100)], 2);
  }
  if (value < 10) {
    *--end = static_cast<char>('0' + value);
    return end;
  }
  end -= 2;
  std::memcpy(end, &kPairs[2 * value], 2);
  return end;
}

}  // namespace

Line& Line::put(std::string_view text) noexcept {
  // Not memcpy(), because an empty text can have a null address.
  const std::size_t fitting = text.copy(text_ + length_, kCapacity - length_);
  length_ += fitting;
  cut_ = cut_ || fitting < text.size();
  return *this;
}

Line& Line::put(std::string_view text, std::size_t width) noexcept {
  if (text.size() < width) fill(' ', width - text.size());
  return put(text);
}

/** Reads kLongestNumber bytes from `digits`, so that many must be readable. */
[[gnu::always_inline]] inline Line& Line::place_digits(const char* digits, std::size_t count,
                                                       std::size_t width) noexcept {
  const std::size_t blanks = width > count ? width - count : 0;
  if (kCapacity - length_ < blanks + count) return put({digits, count}, width);
  fill(' ', blanks);
  std::memcpy(text_ + length_, digits, kLongestNumber);
  length_ += count;
  return *this;
}

Line& Line::number(std::uint64_t value, std::size_t width) noexcept {
  char text[2 * kLongestNumber] = {};
  char* const end = text + kLongestNumber;
  const char* digits = write_digits(value, end);
  return place_digits(digits, static_cast<std::size_t>(end - digits), width);
}

Line& Line::signed_number(std::int64_t value, std::size_t width) noexcept {
  if (value >= 0) return number(static_cast<std::uint64_t>(value), width);
  char text[2 * kLongestNumber] = {};
  char* const end = text + kLongestNumber;
  char* digits = write_digits(0 - static_cast<std::uint64_t>(value), end);
  *--digits = '-';
  return place_digits(digits, static_cast<std::size_t>(end - digits), width);
}

Line& Line::hex(std::uint64_t value, int precision) noexcept {
  if (precision == 0 && value == 0) return *this;
  char text[2 * kLongestNumber] = {};
  char* const end = text + kLongestNumber;
  char* digits = end;
  do {
    *--digits = "0123456789abcdef"[value & 15];
    value >>= 4;
  } while (value != 0);
  const auto count = static_cast<std::size_t>(end - digits);
  const std::size_t least = precision < 0 ? 1 : static_cast<std::size_t>(precision);
  if (count < least) fill('0', least - count);
  return place_digits(digits, count, 0);
}

}  // namespace qk
