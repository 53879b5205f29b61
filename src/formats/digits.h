#ifndef QKMEM_FORMATS_DIGITS_H_
#define QKMEM_FORMATS_DIGITS_H_

#include <cstdint>

/** Decimal digits, eight at once: in a word whose lowest byte is the first of them. */
namespace qk::mem {

/** The same byte eight times. */
[[nodiscard]] constexpr std::uint64_t eight(char c) noexcept {
  return 0x0101010101010101U * static_cast<unsigned char>(c);
}

/** Whether all bytes are values of digits, 0 to 9. */
[[nodiscard]] constexpr bool are_digits(std::uint64_t values) noexcept {
  return (((values + eight(0x7F - 9)) | values) & eight('\x80')) == 0;
}

/** The number of eight values of digits. Any other bytes give any number. */
[[nodiscard]] constexpr std::uint64_t eight_digits(std::uint64_t values) noexcept {
  constexpr std::uint64_t kPairs = 0x000000FF000000FF;
  constexpr std::uint64_t kHigh = 100 + (std::uint64_t{1000000} << 32);
  constexpr std::uint64_t kLow = 1 + (std::uint64_t{10000} << 32);
  const std::uint64_t pairs = values * 10 + (values >> 8);
  return ((pairs & kPairs) * kHigh + ((pairs >> 16) & kPairs) * kLow) >> 32;
}

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_DIGITS_H_
