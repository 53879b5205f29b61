#ifndef QKMEM_FORMATS_VARINT_H_
#define QKMEM_FORMATS_VARINT_H_

#include <cstddef>
#include <cstdint>

/** Numbers of seven bits a byte, the lowest first, as protocol buffers and recordings have them. */
namespace qk::mem {

inline constexpr std::size_t kLongestVarint = 10;

/** Writes a number and returns its end. */
[[gnu::always_inline]] inline char* put_varint(char* to, std::uint64_t number) noexcept {
  while (number >= 0x80) {
    *to++ = static_cast<char>(number | 0x80);
    number >>= 7;
  }
  *to++ = static_cast<char>(number);
  return to;
}

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_VARINT_H_
