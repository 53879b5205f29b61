#ifndef QKMEM_TOOLS_PROGRAM_EXPLANATION_H_
#define QKMEM_TOOLS_PROGRAM_EXPLANATION_H_

#include <string>

#include "output/sheet.h"

namespace qk::command {

/** What an option string does, in words. */
struct Explanation {
  Answer answer;
  bool has_mistake = false;
};

/**
 * Explains the text of one of the library's variables. It can begin with the variable's name, as in a
 * shell; otherwise it is taken for that of the variable that understands most of it.
 */
[[nodiscard]] Explanation explain(const std::string& text);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_EXPLANATION_H_
