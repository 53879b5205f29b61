#ifndef SUPPORT_LINE_H_
#define SUPPORT_LINE_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/cursor.h"

namespace qk {

/**
 * Builds a line of text piece by piece, with the functions of a Cursor. A line that exceeds the
 * capacity is cut, and still ends with a newline.
 */
class Line {
 public:
  static constexpr std::size_t kCapacity = 1023;

  Line& put(char c) noexcept {
    if (length_ < kCapacity) {
      text_[length_++] = c;
    } else {
      cut_ = true;
    }
    return *this;
  }
  Line& put(std::string_view text) noexcept;
  Line& put(const char* text) noexcept {
    return put(std::string_view(text == nullptr ? "(null)" : text));
  }
  Line& put(std::string_view text, std::size_t width) noexcept;
  Line& number(std::uint64_t value, std::size_t width = 0) noexcept;
  Line& signed_number(std::int64_t value, std::size_t width = 0) noexcept;
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

  /**
   * Appends with a cursor: `write` gets one, and writes no more than `most` bytes. Returns false,
   * and does not call it, if the line has no room for so many.
   */
  template <class Write>
  bool append(std::size_t most, Write&& write) noexcept {
    if (most > kCapacity - length_) return false;
    Cursor cursor(text_ + length_);
    write(cursor);
    length_ += cursor.length();
    return true;
  }

  /** Ends the line and returns it. */
  [[nodiscard]] std::string_view finish() noexcept {
    if (cut_) text_[kCapacity - 1] = '\n';
    return {text_, length_};
  }

 private:
  void fill(char c, std::size_t count) noexcept {
    for (; count != 0; --count) put(c);
  }

  std::size_t length_ = 0;
  bool cut_ = false;
  char text_[kCapacity + Cursor::kOverrun];
};

}  // namespace qk

#endif  // SUPPORT_LINE_H_
