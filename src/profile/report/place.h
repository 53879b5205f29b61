#ifndef QKMEM_PROFILE_REPORT_PLACE_H_
#define QKMEM_PROFILE_REPORT_PLACE_H_

#include <cstddef>

#include "profile/report/callers.h"
#include "profile/report/rows.h"
#include "support/line.h"

namespace qk::mem::profile {

/** Appends the place that the program has named, or what stands for it. */
void put_bare_place(qk::Line& line, const Row& row);

/**
 * Appends what a row is about, as people read it: the place that the program has named, its label,
 * and its callers as far as they fit into `width` bytes without the style's.
 */
void put_place(qk::Line& line, const Row& row, const ShownFrames& frames, const Style& style,
               std::size_t width);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_PLACE_H_
