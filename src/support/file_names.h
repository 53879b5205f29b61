#ifndef SUPPORT_FILE_NAMES_H_
#define SUPPORT_FILE_NAMES_H_

#include <cstdint>
#include <span>
#include <string_view>

namespace qk {

/** What a file name can contain that the process doesn't know by itself. */
struct FileNameFacts {
  std::int64_t start = 0;    // seconds since 1970
  std::uint64_t number = 0;  // of the report
};

struct ExpandedName {
  /** Whether the name and its terminator fit. If not, there is no name. */
  bool fits = false;
  /** The first conversion that there isn't, such as "%x": a part of the pattern. Empty if none. */
  std::string_view unknown{};
};

/**
 * Writes the name that a pattern stands for to `name`, terminated:
 *
 *     %p  process number
 *     %n  program name, or "program" if it has none
 *     %h  host name
 *     %t  start as 20261122T164426, in UTC
 *     %i  number of the report
 *     %%  %
 *
 * Any other % stays as it is. No conversion adds a slash: one in a name becomes '_'.
 *
 * Safe in a signal handler, and in any thread that doesn't change the program's name meanwhile.
 * errno is preserved.
 */
[[nodiscard]] ExpandedName expand_file_name(std::string_view pattern, const FileNameFacts& facts,
                                            std::span<char> name) noexcept;

}  // namespace qk

#endif  // SUPPORT_FILE_NAMES_H_
