#ifndef QKMEM_TOOLS_PAGE_TEMPLATE_H_
#define QKMEM_TOOLS_PAGE_TEMPLATE_H_

#include <string_view>

namespace qk::command {

/** The page without what it is about: places for that are as "<!--title-->". */
[[nodiscard]] std::string_view page_template();

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PAGE_TEMPLATE_H_
