#ifndef QKMEM_TOOLS_OUTPUT_HTML_H_
#define QKMEM_TOOLS_OUTPUT_HTML_H_

#include <string>
#include <string_view>

#include "output/sheet.h"

namespace qk::command {

/** A text between tags or in an attribute, whatever bytes it has. */
[[nodiscard]] std::string as_html(std::string_view text);

/** A table with its title above it, as people see it; nothing for a sheet that hides if empty. */
[[nodiscard]] std::string as_html(const Sheet& sheet);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_OUTPUT_HTML_H_
