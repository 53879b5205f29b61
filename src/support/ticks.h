#ifndef SUPPORT_TICKS_H_
#define SUPPORT_TICKS_H_

#include <time.h>

#include <cstdint>

#ifdef __x86_64__
#include <cpuid.h>
#include <x86intrin.h>
#endif

/** A clock that is cheap enough to be read at each event. */
namespace qk {

/** Nanoseconds of a clock of the system's. */
[[nodiscard]] inline std::uint64_t read_clock_in_ns(clockid_t clock) noexcept {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(now.tv_nsec);
}

/** Whether the processor has a counter that runs evenly, whatever the processor does. */
[[nodiscard]] inline bool has_even_counter() noexcept {
#ifdef __x86_64__
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  return __get_cpuid(0x80000007, &a, &b, &c, &d) != 0 && (d & 1U << 8) != 0;
#else
  return false;
#endif
}

/** That counter, or nanoseconds. @param has_counter  what has_even_counter() has returned. */
[[nodiscard, gnu::always_inline]] inline std::uint64_t read_ticks(bool has_counter) noexcept {
#ifdef __x86_64__
  if (has_counter) [[likely]]
    return __rdtsc();
#else
  static_cast<void>(has_counter);
#endif
  return read_clock_in_ns(CLOCK_MONOTONIC);
}

}  // namespace qk

#endif  // SUPPORT_TICKS_H_
