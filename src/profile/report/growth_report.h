#ifndef QKMEM_PROFILE_REPORT_GROWTH_REPORT_H_
#define QKMEM_PROFILE_REPORT_GROWTH_REPORT_H_

#include "profile/options.h"
#include "profile/report/callers.h"
#include "profile/report/growth.h"
#include "profile/report/style.h"
#include "support/page_writer.h"

namespace qk::mem::profile {

/**
 * Appends the report of growth for people: a verdict in one line, the sites that hold more than
 * before, those that hold less, and how many hold as much. Sorts the rows. Calls no allocator.
 */
void put_growth_report(qk::PageWriter& out, Growth& growth, const ShownFrames& frames,
                       const Options& options, const Style& style);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_GROWTH_REPORT_H_
