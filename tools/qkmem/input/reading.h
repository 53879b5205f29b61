#ifndef QKMEM_TOOLS_INPUT_READING_H_
#define QKMEM_TOOLS_INPUT_READING_H_

#include <string>
#include <vector>

#include "input/input.h"

namespace qk::command {

struct InputFacts {
  InputKind kind;
  Check check;
  std::vector<std::string> remarks;  // for the user
};

/**
 * Reads an input of any kind, which its first bytes tell: a file, plain or compressed, or standard
 * input for "-". Throws InputError.
 */
[[nodiscard]] InputFacts read_input(const std::string& name, const Reader& reader);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_READING_H_
