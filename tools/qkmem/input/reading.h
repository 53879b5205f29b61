#ifndef QKMEM_TOOLS_INPUT_READING_H_
#define QKMEM_TOOLS_INPUT_READING_H_

#include <string>

#include "input/input.h"

namespace qk::command {

/** What inputs can be. */
enum class InputKind : std::uint8_t { kTable, kRecording };

struct InputFacts {
  InputKind kind;
  Check check;
};

/**
 * Reads an input of any kind, which its first bytes tell: a file, plain or compressed, or standard
 * input for "-". Throws InputError.
 */
[[nodiscard]] InputFacts read_input(const std::string& name, const Reader& reader);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_READING_H_
