#ifndef SUPPORT_ASSERTION_H_
#define SUPPORT_ASSERTION_H_

namespace qk {

/**
 * Whether the library checks its own rules while it runs. Only builds for tests do: what a user
 * gets has no instruction of it.
 */
#ifdef QKMEM_ASSERTIONS
inline constexpr bool kAssertions = true;
#else
inline constexpr bool kAssertions = false;
#endif

/** Ends the program by SIGABRT after a line on standard error that names the rule. */
[[noreturn]] void rule_broken(const char* rule) noexcept;

}  // namespace qk

#endif  // SUPPORT_ASSERTION_H_
