#ifndef QKMEM_FORMATS_DIGIT_VECTORS_H_
#define QKMEM_FORMATS_DIGIT_VECTORS_H_

#ifdef __SSE2__

#include <emmintrin.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "formats/digits.h"
#include "formats/little_endian.h"

/** What one instruction does to several bytes or numbers of a text, where the processor has SSE2. */
namespace qk::mem {

/** Bytes that are searched at once. */
class ByteBlock {
 public:
  static constexpr std::size_t kSize = 64;

  [[gnu::always_inline]] explicit ByteBlock(const char* bytes)
      : parts_{load(bytes), load(bytes + 16), load(bytes + 32), load(bytes + 48)} {}

  /** The bytes with a value: bit n is set if byte n has it. */
  [[nodiscard, gnu::always_inline]] std::uint64_t with(char value) const {
    const __m128i values = _mm_set1_epi8(value);
    const auto in = [values](__m128i part) {
      const int equal = _mm_movemask_epi8(_mm_cmpeq_epi8(part, values));
      return std::uint64_t{static_cast<std::uint32_t>(equal)};
    };
    return (in(parts_[0]) | in(parts_[1]) << 16) | (in(parts_[2]) | in(parts_[3]) << 16) << 32;
  }

 private:
  [[gnu::always_inline]] static __m128i load(const char* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  }

  __m128i parts_[4];
};

/** Numbers of at most eight digits, and longer hexadecimal ones, that are checked together. */
class DigitVectors {
 public:
  static constexpr std::size_t kMostDigits = 8;  // with the sign

  /** Two numbers, of which each four digits have become one value. */
  struct Pair {
    __m128i numbers;
    __m128i negative;  // each of the two halves is zero if its number isn't
  };

  /**
   * Two numbers, each of 1 to 8 bytes with its sign. Those of more bytes, up to 63, give any number,
   * and without a byte too. Eight bytes up to the end of each are read.
   */
  [[nodiscard, gnu::always_inline]] Pair take_signed(std::string_view first,
                                                     std::string_view second) {
    const __m128i own = own_bytes(first, second);
    const __m128i values = values_of(first, second, own);
    const __m128i minus = _mm_cmpeq_epi8(values, _mm_set1_epi8('-' ^ '0'));
    const __m128i signs = _mm_andnot_si128(_mm_slli_epi64(own, 8), minus);
    signs_ = _mm_or_si128(signs_, signs);
    return {add_up(_mm_andnot_si128(signs, values)), _mm_sad_epu8(signs, _mm_setzero_si128())};
  }

  /** Same without signs. */
  [[nodiscard, gnu::always_inline]] Pair take_unsigned(std::string_view first,
                                                       std::string_view second) {
    return {add_up(values_of(first, second, own_bytes(first, second))), _mm_setzero_si128()};
  }

  /** Same, if no bytes in front of the texts can be read, but eight from the begin of each. */
  [[nodiscard, gnu::always_inline]] Pair take_at_begin(std::string_view first,
                                                       std::string_view second) {
    const auto values = [](std::string_view text) {
      const std::uint64_t bytes = read_little<std::uint64_t>(text.data()) ^ eight('0');
      const std::uint64_t own = bytes << ((0 - 8 * text.size()) % 64);
      return static_cast<long long>(own);
    };
    return {add_up(_mm_set_epi64x(values(second), values(first))), _mm_setzero_si128()};
  }

  /** The numbers of two pairs. */
  [[nodiscard, gnu::always_inline]] static std::array<std::int32_t, 4> numbers_of(
      const Pair& first, const Pair& second) {
    const __m128i fours = _mm_packs_epi32(first.numbers, second.numbers);
    const __m128i sizes = _mm_madd_epi16(fours, _mm_set1_epi32(10000 | 1 << 16));
    const __m128i signs = _mm_castps_si128(
        _mm_shuffle_ps(_mm_castsi128_ps(first.negative), _mm_castsi128_ps(second.negative), 0x88));
    const __m128i negative = _mm_cmpgt_epi32(signs, _mm_setzero_si128());
    std::array<std::int32_t, 4> numbers;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(numbers.data()),
                     _mm_sub_epi32(_mm_xor_si128(sizes, negative), negative));
    return numbers;
  }

  /** The number of 16 hexadecimal digits, with lower-case letters. */
  [[nodiscard, gnu::always_inline]] std::uint64_t take_hexadecimal(const char* digits) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(digits));
    const __m128i decimals = _mm_sub_epi8(bytes, _mm_set1_epi8('0'));
    const __m128i letters = _mm_sub_epi8(bytes, _mm_set1_epi8('a'));
    const __m128i are_decimals = are_at_most(decimals, 9);
    const __m128i are_letters = are_at_most(letters, 5);
    const __m128i are_neither =
        _mm_cmpeq_epi8(_mm_or_si128(are_decimals, are_letters), _mm_setzero_si128());
    others_ = _mm_or_si128(others_, are_neither);
    const __m128i values =
        _mm_or_si128(_mm_and_si128(are_decimals, decimals),
                     _mm_and_si128(are_letters, _mm_add_epi8(letters, _mm_set1_epi8(10))));
    const __m128i pairs = _mm_or_si128(_mm_slli_epi16(values, 4), _mm_srli_epi16(values, 8));
    const __m128i low_bytes = _mm_and_si128(pairs, _mm_set1_epi16(0xFF));
    const __m128i number = _mm_packus_epi16(low_bytes, low_bytes);
    return __builtin_bswap64(static_cast<std::uint64_t>(_mm_cvtsi128_si64(number)));
  }

  /** Whether all were numbers that were taken so far. Those of wrong sizes don't count. */
  [[nodiscard, gnu::always_inline]] bool are_numbers() const {
    const __m128i above_nine = _mm_subs_epu8(largest_, _mm_set1_epi8(9));
    const __m128i only_signs = _mm_srli_epi64(signs_, 56);
    const __m128i faults = _mm_or_si128(_mm_or_si128(above_nine, only_signs), others_);
    return _mm_movemask_epi8(_mm_cmpeq_epi8(faults, _mm_setzero_si128())) == 0xFFFF;
  }

 private:
  /** For each size of a text: which of the eight bytes in front of its end are its own. */
  static constexpr std::array<std::uint64_t, 64> kOwnBytes = [] {
    std::array<std::uint64_t, 64> own{};
    for (std::size_t size = 1; size <= kMostDigits; ++size) own[size] = ~0ULL << (64 - 8 * size);
    return own;
  }();

  [[gnu::always_inline]] static __m128i load(const void* first, const void* second) {
    const __m128i low = _mm_loadl_epi64(static_cast<const __m128i*>(first));
    return _mm_castps_si128(_mm_loadh_pi(_mm_castsi128_ps(low), static_cast<const __m64*>(second)));
  }

  [[gnu::always_inline]] static __m128i own_bytes(std::string_view first, std::string_view second) {
    return load(&kOwnBytes[first.size()], &kOwnBytes[second.size()]);
  }

  /** The values of the digits. The bytes in front of the texts become zeros. */
  [[gnu::always_inline]] static __m128i values_of(std::string_view first, std::string_view second,
                                                  __m128i own) {
    const __m128i bytes = load(first.data() + first.size() - kMostDigits,
                               second.data() + second.size() - kMostDigits);
    return _mm_and_si128(_mm_xor_si128(bytes, _mm_set1_epi8('0')), own);
  }

  /** Makes one number of each four digits. */
  [[gnu::always_inline]] __m128i add_up(__m128i values) {
    largest_ = _mm_max_epu8(largest_, values);
    const __m128i tens =
        _mm_mullo_epi16(_mm_and_si128(values, _mm_set1_epi16(0xFF)), _mm_set1_epi16(10));
    const __m128i twos = _mm_add_epi16(tens, _mm_srli_epi16(values, 8));
    return _mm_madd_epi16(twos, _mm_set1_epi32(100 | 1 << 16));
  }

  [[gnu::always_inline]] static __m128i are_at_most(__m128i bytes, char most) {
    return _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(most)), bytes);
  }

  __m128i largest_ = _mm_setzero_si128();  // of the values of decimal digits
  __m128i signs_ = _mm_setzero_si128();    // where they are
  __m128i others_ = _mm_setzero_si128();   // than hexadecimal digits
};

}  // namespace qk::mem

#endif  // __SSE2__

#endif  // QKMEM_FORMATS_DIGIT_VECTORS_H_
