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

/** The address behind a path's first byte in the upper 48 bits, and the last component's offset. */
using KnownPath = std::atomic<std::uint64_t>;
inline constexpr std::size_t kKnownPaths = 64;
extern KnownPath known_paths[kKnownPaths];

[[nodiscard]] inline KnownPath& known_path_at(std::uintptr_t address) noexcept {
  return known_paths[(address ^ address >> 6) % kKnownPaths];
}

/** Same as file_name_only(), and remembers the path if it is the program's literal. */
[[nodiscard]] const char* search_path(const char* path) noexcept;

/** Same as file_name_only(), without a search for paths that are remembered. */
[[nodiscard]] inline const char* name_in_known_path(const char* path) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(path);
  const std::uint64_t known = known_path_at(address).load(std::memory_order_relaxed);
  if (kShortcuts && known >> 16 == address + 1) [[likely]]
    return path + (known & 0xFFFF);
  return search_path(path);
}

}  // namespace qk

#endif  // SUPPORT_KNOWN_PATHS_H_
