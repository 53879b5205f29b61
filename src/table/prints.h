#ifndef QKMEM_TABLE_PRINTS_H_
#define QKMEM_TABLE_PRINTS_H_

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <bit>
#include <cstdint>

#include "support/shared_variable.h"
#include "support/shortcuts.h"

/**
 * Prints: a byte of each of 16 addresses, all of which are compared at once. Equal addresses have
 * equal prints, and of two others only one in 256 pairs has.
 *
 * Sixteen prints are two words. Each is read and written by itself and whole: a processor that
 * reads memory soon after it has written only a part of it has to wait.
 */
namespace qk::mem {

using Prints = std::uint64_t[2];

inline constexpr int kPrints = 16;

/** The print of an address. All of its bits count. */
[[nodiscard]] inline std::uint8_t print_of(const void* address) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  return static_cast<std::uint8_t>(reinterpret_cast<std::uintptr_t>(address) * kFactor >> 56);
}

/** Sets one of the prints, number 0 to 15. */
inline void set_print(Prints& prints, std::uint32_t number, std::uint8_t print) {
  std::uint64_t& word = prints[number / 8];
  const int shift = static_cast<int>(number * 8);  // modulo 64, as rotations are
  word = std::rotl((std::rotr(word, shift) & ~std::uint64_t{0xFF}) | print, shift);
}

/** The bytes of a word that have a value: bit n is set if byte n has it. */
[[nodiscard]] constexpr std::uint32_t bytes_with(std::uint64_t word, std::uint8_t value) {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  constexpr std::uint64_t kLow = 0x7F7F7F7F7F7F7F7FU;
  const std::uint64_t others = word ^ value * kOnes;
  const std::uint64_t zeros = ~(((others & kLow) + kLow) | others | kLow);  // 0x80 in each
  return static_cast<std::uint32_t>((zeros >> 7) * 0x0102040810204080U >> 56);
}

/** The prints with a value: bit n is set if number n has it. */
[[nodiscard]] inline std::uint32_t prints_with(const Prints& prints, std::uint8_t value) {
#ifdef __SSE2__
  if constexpr (!kPortable) {
    // An ordinary read of both words would become a single one.
    const __m128i all = _mm_set_epi64x(static_cast<long long>(qk::load(prints[1])),
                                       static_cast<long long>(qk::load(prints[0])));
    const __m128i equal = _mm_cmpeq_epi8(all, _mm_set1_epi8(static_cast<char>(value)));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(equal));
  }
#endif
  return bytes_with(prints[0], value) | bytes_with(prints[1], value) << 8;
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_PRINTS_H_
