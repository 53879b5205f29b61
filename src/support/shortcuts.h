#ifndef SUPPORT_SHORTCUTS_H_
#define SUPPORT_SHORTCUTS_H_

/**
 * How the library was built. Tests build it in each of these ways and expect the same output.
 */
namespace qk {

/** Whether the library takes shortcuts: cheaper ways to the same result. */
#ifdef QKMEM_NO_SHORTCUTS
inline constexpr bool kShortcuts = false;
#else
inline constexpr bool kShortcuts = true;
#endif

/** Whether plain C++ stands in for the code that is written for one processor. */
#ifdef QKMEM_PORTABLE
inline constexpr bool kPortable = true;
#else
inline constexpr bool kPortable = false;
#endif

/** Whether additions and comparisons in memory are one instruction, which sanitizers can't see. */
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAddsInMemory = !kPortable;
#else
inline constexpr bool kAddsInMemory = false;
#endif

}  // namespace qk

#endif  // SUPPORT_SHORTCUTS_H_
