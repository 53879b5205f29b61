#ifndef QKMEM_TOOLS_PAGE_ROWS_H_
#define QKMEM_TOOLS_PAGE_ROWS_H_

#include <cstddef>
#include <vector>

#include "views/groups.h"

namespace qk::command {

/** Some sites that a page shows as one: of one line and stack, or what is left of a handle. */
struct PageRow {
  std::vector<SiteIndex> sites;
  std::size_t groups = 1;  // of one line and stack each, that it stands for
  bool is_rest = false;
  Figures figures;
};

/** The rows of a page. */
struct PageRows {
  std::vector<PageRow> rows;
  std::size_t groups = 0;  // that there are
  std::size_t shown = 0;   // that have a row of their own
};

/**
 * Chooses the rows of a page: those lines and stacks that have held most at a time, one row for what
 * else is on each handle, and a last one for the handles that would be too many.
 */
[[nodiscard]] PageRows rows_of(const Query& query, const Ledger& ledger);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PAGE_ROWS_H_
