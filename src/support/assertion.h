#ifndef SUPPORT_ASSERTION_H_
#define SUPPORT_ASSERTION_H_

namespace qk {

/**
 * Whether the library checks its own invariants at run time. Only test builds do. A user's build
 * has no instruction of these checks.
 */
#ifdef QKMEM_ASSERTIONS
inline constexpr bool kAssertions = true;
#else
inline constexpr bool kAssertions = false;
#endif

/** Writes a line with the broken rule to standard error and aborts. */
[[noreturn]] void assertion_failed(const char* rule) noexcept;

}  // namespace qk

#endif  // SUPPORT_ASSERTION_H_
