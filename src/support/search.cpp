#include "support/search.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qk {
namespace {

std::int32_t find_one_by_one(const std::uint16_t* values, std::int32_t from, std::int32_t end,
                             std::uint16_t value) noexcept {
  for (; from < end; ++from) {
    if (values[from] == value) return from;
  }
  return -1;
}

#if defined(__x86_64__)

/** Values compared in one step: four vectors, whose results are combined. */
constexpr std::int32_t kStep = 64;

/** Returns the index of the first match in two masks, which have two bits per value. */
std::int32_t first_in(std::uint64_t low, std::uint64_t high, std::int32_t values) noexcept {
  return low != 0 ? __builtin_ctzll(low) / 2 : values + __builtin_ctzll(high) / 2;
}

[[gnu::target("avx2")]] std::uint64_t mask_of(__m256i low, __m256i high) noexcept {
  return static_cast<std::uint32_t>(_mm256_movemask_epi8(low)) |
         std::uint64_t{static_cast<std::uint32_t>(_mm256_movemask_epi8(high))} << 32;
}

[[gnu::target("avx2")]] std::int32_t find_with_avx2(const std::uint16_t* values, std::int32_t from,
                                                    std::int32_t end,
                                                    std::uint16_t value) noexcept {
  const __m256i wanted = _mm256_set1_epi16(static_cast<std::int16_t>(value));
  for (; end - from >= kStep; from += kStep) {
    const auto* at = reinterpret_cast<const __m256i*>(values + from);
    const __m256i a = _mm256_cmpeq_epi16(_mm256_loadu_si256(at), wanted);
    const __m256i b = _mm256_cmpeq_epi16(_mm256_loadu_si256(at + 1), wanted);
    const __m256i c = _mm256_cmpeq_epi16(_mm256_loadu_si256(at + 2), wanted);
    const __m256i d = _mm256_cmpeq_epi16(_mm256_loadu_si256(at + 3), wanted);
    const __m256i any = _mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d));
    if (_mm256_testz_si256(any, any) == 0) {
      return from + first_in(mask_of(a, b), mask_of(c, d), kStep / 2);
    }
  }
  return find_one_by_one(values, from, end, value);
}

/** All x86-64 processors have SSE2. */
std::int32_t find_with_sse2(const std::uint16_t* values, std::int32_t from, std::int32_t end,
                            std::uint16_t value) noexcept {
  const __m128i wanted = _mm_set1_epi16(static_cast<std::int16_t>(value));
  for (; end - from >= kStep / 2; from += kStep / 2) {
    const auto* at = reinterpret_cast<const __m128i*>(values + from);
    const __m128i a = _mm_cmpeq_epi16(_mm_loadu_si128(at), wanted);
    const __m128i b = _mm_cmpeq_epi16(_mm_loadu_si128(at + 1), wanted);
    const __m128i c = _mm_cmpeq_epi16(_mm_loadu_si128(at + 2), wanted);
    const __m128i d = _mm_cmpeq_epi16(_mm_loadu_si128(at + 3), wanted);
    const __m128i any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
    if (_mm_movemask_epi8(any) != 0) return find_one_by_one(values, from, from + kStep / 2, value);
  }
  return find_one_by_one(values, from, end, value);
}

#endif

}  // namespace

std::int32_t find_value(const std::uint16_t* values, std::int32_t from, std::int32_t end,
                        std::uint16_t value) noexcept {
#if defined(__x86_64__)
  return __builtin_cpu_supports("avx2") ? find_with_avx2(values, from, end, value)
                                        : find_with_sse2(values, from, end, value);
#else
  return find_one_by_one(values, from, end, value);
#endif
}

}  // namespace qk
