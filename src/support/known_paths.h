#ifndef SUPPORT_KNOWN_PATHS_H_
#define SUPPORT_KNOWN_PATHS_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/shortcuts.h"
#include "support/text.h"

/**
 * Remembers where the last component of a path begins. Callers pass the same literals again and
 * again, and searching them costs more than all else that is noted about a call's place.
 *
 * Only texts in the program's own read-only segments are remembered: those never change. A text of
 * a library can, when another one is loaded to its address.
 */
namespace qk {

/**
 * A path's address in the upper 48 bits, and the last component's offset. At first all bits are
 * set, since null would match a zero.
 */
struct KnownPath : std::atomic<std::uint64_t> {
  constexpr KnownPath() : atomic(~std::uint64_t{0}) {}
};
inline constexpr std::size_t kKnownPaths = 64;
[[gnu::visibility("hidden")]] extern KnownPath known_paths[kKnownPaths];

[[nodiscard]] inline KnownPath& known_path_at(std::uintptr_t address) noexcept {
  return known_paths[address / 8 % kKnownPaths];
}

/** Same as file_name_only(), and remembers the path if it is the program's literal. */
[[nodiscard]] const char* search_path(const char* path) noexcept;

/** The path whose last component a name is, if that is remembered; otherwise the name. */
[[nodiscard]] const char* known_path_of(const char* name) noexcept;

/** Whether a path is remembered. If so, sets `name` to what file_name_only() returns for it. */
[[nodiscard]] inline bool find_known_name(const char* path, const char*& name) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(path);
  const std::uint64_t known = known_path_at(address).load(std::memory_order_relaxed);
  if (!kShortcuts || known >> 16 != address) [[unlikely]]
    return false;
  name = path + (known & 0xFFFF);
  return true;
}

/** Same as file_name_only(), without a search for paths that are remembered. */
[[nodiscard]] inline const char* name_in_path(const char* path) noexcept {
  const char* name = nullptr;
  return find_known_name(path, name) ? name : search_path(path);
}

}  // namespace qk

#endif  // SUPPORT_KNOWN_PATHS_H_
