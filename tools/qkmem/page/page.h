#ifndef QKMEM_TOOLS_PAGE_PAGE_H_
#define QKMEM_TOOLS_PAGE_PAGE_H_

#include <string>

#include "views/query.h"

namespace qk::command {

/**
 * A page of HTML that shows a run, or two if the query has another input: one file that asks for no
 * other. Throws what read() throws, and UsageError if an input can't be read twice.
 */
[[nodiscard]] std::string page_of(const Query& query);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PAGE_PAGE_H_
