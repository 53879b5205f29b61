#ifndef QKMEM_CHECK_GUARDS_H_
#define QKMEM_CHECK_GUARDS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "check/settings.h"

/**
 * Guards: bytes behind a block, or in front of it, that the program has no reason to write to. A
 * write there shows when they are looked at.
 */
namespace qk::mem::check {

/**
 * What a guard consists of, again and again. No two bytes are equal, none is zero, a character or
 * one of the fillings, and no eight of them are an address: what programs write differs.
 */
inline constexpr unsigned char kPattern[kGuardStep] = {
    0xC3, 0x9D, 0xE7, 0xB1, 0x8F, 0xD5, 0xF9, 0xAB, 0x97, 0xED, 0xBD, 0xCF, 0x85, 0xDB, 0xF3, 0xA9};

/** What released memory is filled with. */
inline constexpr int kReleasedFilling = 0x5A;

/** Bytes that differ from what they have to be: where they begin, and how many up to the last. */
struct Differing {
  std::uint64_t offset;
  std::uint64_t length;
};

namespace detail {
void lay_long(unsigned char* guard, std::uint32_t bytes);
[[nodiscard]] bool is_whole_long(const unsigned char* guard, std::uint32_t bytes);
}  // namespace detail

[[gnu::always_inline]] inline void lay_guard(void* guard, std::uint32_t bytes) {
  if (bytes == 0) return;
  std::memcpy(guard, kPattern, kGuardStep);
  if (bytes != kGuardStep) [[unlikely]]
    detail::lay_long(static_cast<unsigned char*>(guard), bytes);
}

[[nodiscard, gnu::always_inline]] inline bool is_whole(const void* guard, std::uint32_t bytes) {
  if (bytes == 0) return true;
  if (std::memcmp(guard, kPattern, kGuardStep) != 0) [[unlikely]]
    return false;
  return bytes == kGuardStep ||
         detail::is_whole_long(static_cast<const unsigned char*>(guard), bytes);
}

[[nodiscard]] inline char* guard_behind(const void* block, std::uint64_t bytes) {
  return const_cast<char*>(static_cast<const char*>(block)) + bytes;
}
[[nodiscard]] inline char* guard_in_front(const void* block, const Layout& layout) {
  return const_cast<char*>(static_cast<const char*>(block)) - layout.front;
}

/** Lays the guards of a block. */
[[gnu::always_inline]] inline void lay_guards(void* block, std::uint64_t bytes,
                                              const Layout& layout) {
  lay_guard(guard_in_front(block, layout), layout.front);
  lay_guard(guard_behind(block, bytes), layout.behind);
}

/** Whether all guards of a block are as they were laid. */
[[nodiscard, gnu::always_inline]] inline bool has_whole_guards(const void* block,
                                                               std::uint64_t bytes,
                                                               const Layout& layout) {
  return is_whole(guard_behind(block, bytes), layout.behind) &&
         is_whole(guard_in_front(block, layout), layout.front);
}

/** Where a guard differs from what was laid. */
[[nodiscard]] std::optional<Differing> differing_in_guard(const void* guard, std::uint32_t bytes);

/** Whether all of some bytes are one value, and where not. */
[[nodiscard]] bool is_filled(const void* memory, std::uint64_t bytes, int filling);
[[nodiscard]] std::optional<Differing> differing_from_filling(const void* memory,
                                                              std::uint64_t bytes, int filling);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_GUARDS_H_
