#include "support/line.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace qk {
namespace {

/** Characters of the longest number of any kind. */
constexpr std::size_t kLongestNumber = 24;

/** The digits of a number in a place of their own. */
class Digits {
 public:
  template <class Number>
  Digits(Number value, int base)
      : end_(std::to_chars(text_, text_ + sizeof text_, value, base).ptr) {}

  [[nodiscard]] std::string_view view() const {
    return {text_, static_cast<std::size_t>(end_ - text_)};
  }

 private:
  char text_[kLongestNumber];
  char* end_;
};

}  // namespace

Line& Line::put(std::string_view text) noexcept {
  const std::size_t fitting = std::min(text.size(), kCapacity - length_);
  std::memcpy(text_ + length_, text.data(), fitting);
  length_ += fitting;
  cut_ = cut_ || fitting < text.size();
  return *this;
}

Line& Line::put(std::string_view text, std::size_t width) noexcept {
  if (text.size() < width) fill(' ', width - text.size());
  return put(text);
}

Line& Line::number(std::uint64_t value, std::size_t width) noexcept {
  return put(Digits(value, 10).view(), width);
}

Line& Line::signed_number(std::int64_t value, std::size_t width) noexcept {
  return put(Digits(value, 10).view(), width);
}

Line& Line::hex(std::uint64_t value, int precision) noexcept {
  if (precision == 0 && value == 0) return *this;
  const Digits digits(value, 16);
  const std::size_t least = precision < 0 ? 1 : static_cast<std::size_t>(precision);
  if (digits.view().size() < least) fill('0', least - digits.view().size());
  return put(digits.view());
}

}  // namespace qk
