#ifndef QKMEM_TOOLS_PAGE_PAGE_RUN_H_
#define QKMEM_TOOLS_PAGE_PAGE_RUN_H_

#include <optional>

#include "page/picture.h"
#include "page/rows.h"

namespace qk::command {

/** A run as a page shows it. */
struct PageRun {
  Query query;
  Reading reading;
  PageRows rows;
  std::optional<Picture> picture;  // none if the input has no events
  std::size_t peak = 0;            // which of the picture's moments that is
};

/**
 * Reads a run twice: who its rows are is known only at the end. Throws what read() throws, and
 * UsageError if the input can be read only once.
 */
[[nodiscard]] PageRun read_page_run(const Query& query);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PAGE_PAGE_RUN_H_
