#ifndef QKMEM_TOOLS_NAMES_STACKS_H_
#define QKMEM_TOOLS_NAMES_STACKS_H_

#include <string>
#include <vector>

#include "ledger/places.h"

namespace qk::command {

/**
 * Names the calls in the stacks of a program, and leaves out those that tell nothing, as the
 * library's reports do: its own, those of the C++ library, and what starts programs and threads.
 * Returns why functions have no names, for the user.
 */
[[nodiscard]] std::vector<std::string> name_stacks(Program& program);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_NAMES_STACKS_H_
