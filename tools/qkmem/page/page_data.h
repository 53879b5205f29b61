#ifndef QKMEM_TOOLS_PAGE_PAGE_DATA_H_
#define QKMEM_TOOLS_PAGE_PAGE_DATA_H_

#include <span>
#include <string>

#include "page/page_run.h"

/** What a page's script gets of runs. page/script/data.js reads it. */
namespace qk::command {

/** Names and figures of one run, or of two that are compared, as JSON. */
[[nodiscard]] std::string facts_of(std::span<const PageRun> runs);

/**
 * The levels and the exact figures of a run as a Packing: a number of steps that the peak is divided
 * into; for each row and bucket the level in those steps, as the change since the bucket before; for
 * each row live bytes, live blocks, made bytes and made blocks, each as the change since the moment
 * before; and like the levels how much more the most of each bucket is. Empty without a picture.
 */
[[nodiscard]] std::string packed_levels_of(const PageRun& run);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PAGE_PAGE_DATA_H_
