#ifndef SUPPORT_LINE_H_
#define SUPPORT_LINE_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qk {

/**
 * Builds a line of text piece by piece, with the result of the C library's formatted output at a
 * fraction of its cost. The comment of each function names its conversion. A line that exceeds the
 * capacity is cut, and still ends with a newline.
 */
class Line {
 public:
  static constexpr std::size_t kCapacity = 1023;

  /** %c, including a zero byte. */
  Line& put(char c) noexcept {
    if (length_ < kCapacity) {
      text_[length_++] = c;
    } else {
      cut_ = true;
    }
    return *this;
  }

  /** Literal text. */
  Line& put(std::string_view text) noexcept;

  /** %s, with "(null)" for null as in the C library. */
  Line& put(const char* text) noexcept {
    return put(std::string_view(text == nullptr ? "(null)" : text));
  }

  /** %*s: right-aligned in `width` characters. */
  Line& put(std::string_view text, std::size_t width) noexcept;

  /** %*zu, and %zu without a width. */
  Line& number(std::uint64_t value, std::size_t width = 0) noexcept;

  /** %*zd, and %zd without a width. */
  Line& signed_number(std::int64_t value, std::size_t width = 0) noexcept;

  /** %.*zx: at least `precision` digits; a negative number means 1. */
  Line& hex(std::uint64_t value, int precision) noexcept;

  [[nodiscard]] std::size_t length() const noexcept { return length_; }

  /** Cuts the line to a length. */
  Line& shorten(std::size_t length) noexcept {
    if (length_ > length) {
      length_ = length;
      cut_ = false;
    }
    return *this;
  }

  /** Ends the line and returns it. */
  [[nodiscard]] std::string_view finish() noexcept {
    if (cut_) text_[kCapacity - 1] = '\n';
    return {text_, length_};
  }

 private:
  // Every number is copied as this many bytes, which is faster than its exact length.
  static constexpr std::size_t kLongestNumber = 24;

  Line& place_digits(const char* digits, std::size_t count, std::size_t width) noexcept;

  void fill(char c, std::size_t count) noexcept {
    for (; count != 0; --count) put(c);
  }

  std::size_t length_ = 0;
  bool cut_ = false;
  char text_[kCapacity + kLongestNumber];
};

}  // namespace qk

#endif  // SUPPORT_LINE_H_
