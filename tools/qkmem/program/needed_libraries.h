#ifndef QKMEM_TOOLS_PROGRAM_NEEDED_LIBRARIES_H_
#define QKMEM_TOOLS_PROGRAM_NEEDED_LIBRARIES_H_

#include <string>
#include <vector>

namespace qk::command {

/** A shared library that a program starts with. */
struct NeededLibrary {
  std::string name;
  std::string path;  // empty if it is not found
};

/**
 * The libraries that a program needs, and those that these need, as the system's loader finds them.
 * The loader is this command's own: a program can name another one, which would be run then. Empty
 * for a program without libraries, and if the loader can't be asked.
 */
[[nodiscard]] std::vector<NeededLibrary> needed_libraries(const std::string& program);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_NEEDED_LIBRARIES_H_
