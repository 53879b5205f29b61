#ifndef QKMEM_PROFILE_REPORT_PLACE_H_
#define QKMEM_PROFILE_REPORT_PLACE_H_

#include <cstddef>

#include "profile/report/rows.h"
#include "support/line.h"

namespace qk::mem::profile {

/** Appends what a row is about, as people read it, in at most `width` bytes. */
void put_place(qk::Line& line, const Row& row, std::size_t width);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_PLACE_H_
