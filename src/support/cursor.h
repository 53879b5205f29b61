#ifndef SUPPORT_CURSOR_H_
#define SUPPORT_CURSOR_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qk {

/**
 * Writes text piece by piece to memory that has room for it, with the result of the C library's
 * formatted output at a fraction of its cost. The comment of each function names its conversion.
 *
 * Nothing is checked. There must be room for kOverrun bytes more than are written, because pieces
 * are copied as fixed numbers of bytes, which is faster than their exact length.
 */
class Cursor {
 public:
  static constexpr std::size_t kOverrun = 8;
  /** Digits and sign of the longest number. */
  static constexpr std::size_t kLongestNumber = 20;
  static constexpr int kMostHexDigits = 16;

  explicit Cursor(char* start) noexcept : start_(start), at_(start) {}

  /** Where the next piece goes. */
  [[nodiscard]] char* at() const noexcept { return at_; }

  /** What was written. */
  [[nodiscard]] std::size_t length() const noexcept {
    return static_cast<std::size_t>(at_ - start_);
  }
  [[nodiscard]] std::string_view text() const noexcept { return {start_, length()}; }

  /** Takes back what exceeds a length. */
  Cursor& shorten(std::size_t length) noexcept {
    if (this->length() > length) at_ = start_ + length;
    return *this;
  }

  /** %c, including a zero byte. */
  Cursor& put(char c) noexcept {
    *at_++ = c;
    return *this;
  }

  /** Literal text. */
  Cursor& put(std::string_view text) noexcept {
    // Not memcpy(), because an empty text can have a null address.
    at_ += text.copy(at_, text.size());
    return *this;
  }

  /** %s, with "(null)" for null as in the C library. */
  Cursor& put(const char* text) noexcept {
    return put(std::string_view(text == nullptr ? "(null)" : text));
  }

  /** %*s: right-aligned in `width` characters. */
  Cursor& put(std::string_view text, std::size_t width) noexcept {
    for (std::size_t i = text.size(); i < width; ++i) put(' ');
    return put(text);
  }

  /** %*zu, and %zu without a width. */
  [[gnu::always_inline]] inline Cursor& number(std::uint64_t value,
                                               std::size_t width = 0) noexcept {
    if (width > kBlanks.size() || value >= 1000000) {
      at_ = any_number(at_, false, value, width);
    } else if (value < 1000) {
      blanks(digits_of(value), width).first_digits(value);
    } else {
      const std::uint64_t thousands = value / 1000;
      blanks(digits_of(thousands) + 3, width).first_digits(thousands).digits(value % 1000);
    }
    return *this;
  }

  /** %*zd, and %zd without a width. */
  [[gnu::always_inline]] inline Cursor& signed_number(std::int64_t value,
                                                      std::size_t width = 0) noexcept {
    if (value >= 0) return number(static_cast<std::uint64_t>(value), width);
    const std::uint64_t positive = 0 - static_cast<std::uint64_t>(value);
    if (width == 0) return put('-').number(positive);
    at_ = any_number(at_, true, positive, width);
    return *this;
  }

  /** %.*zx: at least `precision` digits; a negative number means 1. */
  Cursor& hex(std::uint64_t value, int precision) noexcept {
    if (precision != kMostHexDigits) {
      at_ = hex_digits(at_, value, precision);
    } else {
      for (int shift = 56; shift >= 0; shift -= 8) {
        std::memcpy(at_, &kBytes[2 * (value >> shift & 255)], 2);
        at_ += 2;
      }
    }
    return *this;
  }

 private:
  static constexpr std::string_view kBlanks = "        ";
  static_assert(kBlanks.size() <= kOverrun);

  /** For each number of up to three digits: "000" to "999", and how many of them are leading. */
  static constexpr auto kThousand = [] {
    std::array<char, 4 * 1000 + 4> entries{};
    for (std::size_t i = 0; i < 1000; ++i) {
      entries[4 * i] = static_cast<char>('0' + i / 100);
      entries[4 * i + 1] = static_cast<char>('0' + i / 10 % 10);
      entries[4 * i + 2] = static_cast<char>('0' + i % 10);
      entries[4 * i + 3] = static_cast<char>(i < 10 ? 2 : i < 100 ? 1 : 0);
    }
    return entries;
  }();

  /** The hexadecimal digits of all bytes, "00" to "ff". */
  static constexpr auto kBytes = [] {
    std::array<char, 512> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = "0123456789abcdef"[i % 2 == 0 ? i / 32 : i / 2 % 16];
    }
    return bytes;
  }();

  static std::size_t leading_zeros(std::uint64_t below_1000) noexcept {
    return static_cast<unsigned char>(kThousand[4 * below_1000 + 3]);
  }
  static std::size_t digits_of(std::uint64_t below_1000) noexcept {
    return 3 - leading_zeros(below_1000);
  }

  /** The blanks before `count` digits in `width` characters. */
  Cursor& blanks(std::size_t count, std::size_t width) noexcept {
    if (width == 0) return *this;
    std::memcpy(at_, kBlanks.data(), kBlanks.size());
    at_ += width > count ? width - count : 0;
    return *this;
  }

  /** A number of up to three digits without leading zeros. */
  Cursor& first_digits(std::uint64_t below_1000) noexcept {
    std::memcpy(at_, &kThousand[4 * below_1000 + leading_zeros(below_1000)], 4);
    at_ += digits_of(below_1000);
    return *this;
  }

  /** Three digits. */
  Cursor& digits(std::uint64_t below_1000) noexcept {
    std::memcpy(at_, &kThousand[4 * below_1000], 4);
    at_ += 3;
    return *this;
  }

  // These take and return the place, so that it can stay in a register.
  static char* any_number(char* at, bool negative, std::uint64_t value, std::size_t width) noexcept;
  static char* hex_digits(char* at, std::uint64_t value, int precision) noexcept;

  char* start_;
  char* at_;
};

}  // namespace qk

#endif  // SUPPORT_CURSOR_H_
