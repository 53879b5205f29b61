#include "support/line.h"

namespace qk {
namespace {

/** Room for a number. */
struct Digits {
  char text[Cursor::kLongestNumber + Cursor::kOverrun];
};

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

Line& Line::number(std::uint64_t value, std::size_t width) noexcept {
  Digits digits;
  return put(Cursor(digits.text).number(value).text(), width);
}

Line& Line::signed_number(std::int64_t value, std::size_t width) noexcept {
  Digits digits;
  return put(Cursor(digits.text).signed_number(value).text(), width);
}

Line& Line::hex(std::uint64_t value, int precision) noexcept {
  if (precision == 0 && value == 0) return *this;
  Digits digits;
  const std::string_view text = Cursor(digits.text).hex(value, 1).text();
  const std::size_t least = precision < 0 ? 1 : static_cast<std::size_t>(precision);
  if (text.size() < least) fill('0', least - text.size());
  return put(text);
}

}  // namespace qk
