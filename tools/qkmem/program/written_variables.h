#ifndef QKMEM_TOOLS_PROGRAM_WRITTEN_VARIABLES_H_
#define QKMEM_TOOLS_PROGRAM_WRITTEN_VARIABLES_H_

#include <string>
#include <vector>

#include "program/launch.h"

namespace qk::command {

/** Who reads variables. */
enum class WrittenFor : std::uint8_t { kShell, kSystemd, kDocker };

/** Variables as lines of a shell script, of a unit of systemd, or of a Dockerfile. */
[[nodiscard]] std::string written(const std::vector<Setting>& settings, WrittenFor reader);

/** A text as a word of a shell. */
[[nodiscard]] std::string as_shell_word(const std::string& text);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_WRITTEN_VARIABLES_H_
