#include "support/cursor.h"

#include <algorithm>

namespace qk {

char* Cursor::any_number(char* at, bool negative, std::uint64_t value, std::size_t width) noexcept {
  std::uint64_t groups[kLongestNumber / 3];
  std::size_t count = 0;
  for (; value >= 1000; value /= 1000) groups[count++] = value % 1000;
  const std::size_t length = (negative ? 1 : 0) + digits_of(value) + 3 * count;
  Cursor cursor(at);
  for (std::size_t i = length; i < width; ++i) cursor.put(' ');
  if (negative) cursor.put('-');
  cursor.first_digits(value);
  while (count != 0) cursor.digits(groups[--count]);
  return cursor.at();
}

char* Cursor::hex_digits(char* at, std::uint64_t value, int precision) noexcept {
  if (precision == 0 && value == 0) return at;
  char text[kMostHexDigits];
  const std::string_view all = Cursor(text).hex(value, kMostHexDigits).text();
  const std::string_view digits = all.substr(std::min(all.find_first_not_of('0'), all.size()));
  const std::size_t least = precision < 0 ? 1 : static_cast<std::size_t>(precision);
  Cursor cursor(at);
  for (std::size_t i = digits.size(); i < least; ++i) cursor.put('0');
  return cursor.put(digits).at();
}

}  // namespace qk
