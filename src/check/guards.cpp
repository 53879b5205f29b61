#include "check/guards.h"

namespace qk::mem::check {
namespace {

/** The bytes from the first to the last that `differs` holds for. */
template <class Differs>
std::optional<Differing> find_differing(const unsigned char* memory, std::uint64_t bytes,
                                        Differs differs) {
  std::uint64_t first = 0;
  while (first < bytes && !differs(memory, first)) ++first;
  if (first == bytes) return std::nullopt;
  std::uint64_t last = bytes - 1;
  while (!differs(memory, last)) --last;
  return Differing{first, last - first + 1};
}

}  // namespace

void detail::lay_long(unsigned char* guard, std::uint32_t bytes) {
  for (std::uint32_t i = kGuardStep; i < bytes; i += kGuardStep) {
    std::memcpy(guard + i, kPattern, kGuardStep);
  }
}

bool detail::is_whole_long(const unsigned char* guard, std::uint32_t bytes) {
  for (std::uint32_t i = kGuardStep; i < bytes; i += kGuardStep) {
    if (std::memcmp(guard + i, kPattern, kGuardStep) != 0) return false;
  }
  return true;
}

std::optional<Differing> differing_in_guard(const void* guard, std::uint32_t bytes) {
  return find_differing(
      static_cast<const unsigned char*>(guard), bytes,
      [](const unsigned char* at, std::uint64_t i) { return at[i] != kPattern[i % kGuardStep]; });
}

bool is_filled(const void* memory, std::uint64_t bytes, int filling) {
  const auto* const first = static_cast<const unsigned char*>(memory);
  // Memory that equals itself one byte further on is the same everywhere.
  return bytes == 0 || (*first == filling && std::memcmp(first, first + 1, bytes - 1) == 0);
}

std::optional<Differing> differing_from_filling(const void* memory, std::uint64_t bytes,
                                                int filling) {
  if (is_filled(memory, bytes, filling)) return std::nullopt;
  return find_differing(
      static_cast<const unsigned char*>(memory), bytes,
      [filling](const unsigned char* at, std::uint64_t i) { return at[i] != filling; });
}

}  // namespace qk::mem::check
