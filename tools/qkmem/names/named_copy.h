#ifndef QKMEM_TOOLS_NAMES_NAMED_COPY_H_
#define QKMEM_TOOLS_NAMES_NAMED_COPY_H_

#include <cstdint>
#include <string>
#include <vector>

namespace qk::command {

/** What became of the return addresses of a recording. */
struct NamedCopy {
  std::uint64_t addresses = 0;
  std::uint64_t named = 0;
  std::vector<std::string> remarks;  // why others are not, for the user
};

/**
 * Writes a copy of a recording that has the names of its functions with it, and of the tail if the
 * recording has one. Throws InputError and OutputError, also if there is a file of the copy's name
 * and `may_overwrite` is false.
 */
[[nodiscard]] NamedCopy write_named_copy(const std::string& input, const std::string& output,
                                         bool may_overwrite);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_NAMES_NAMED_COPY_H_
