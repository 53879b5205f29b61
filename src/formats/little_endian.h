#ifndef QKMEM_FORMATS_LITTLE_ENDIAN_H_
#define QKMEM_FORMATS_LITTLE_ENDIAN_H_

#include <bit>
#include <cstring>

namespace qk::mem {

static_assert(std::endian::native == std::endian::little);

/** Numbers in the byte order of files, at any address. */
template <class Number>
[[nodiscard]] inline Number read_little(const char* bytes) noexcept {
  Number number;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

template <class Number>
inline void write_little(char* bytes, Number number) noexcept {
  std::memcpy(bytes, &number, sizeof number);
}

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_LITTLE_ENDIAN_H_
