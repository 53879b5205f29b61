#ifndef QKMEM_PROFILE_REPORT_TEXT_REPORT_H_
#define QKMEM_PROFILE_REPORT_TEXT_REPORT_H_

#include "profile/options.h"
#include "profile/report/callers.h"
#include "profile/report/rows.h"
#include "profile/report/style.h"
#include "profile/report/verdict.h"
#include "support/page_writer.h"

namespace qk::mem::profile {

/**
 * Appends the report for people: a verdict in one line, then the sites that hold memory, those that
 * held it at the peak, and those whose blocks are freed at once; each part only if it has something
 * to say. With `findings` the sites that have lost memory come first, or it says why nobody knows.
 * Sorts the rows. Calls no allocator.
 */
void put_text_report(qk::PageWriter& out, Rows& rows, const ShownFrames& frames,
                     const Options& options, const Style& style, Occasion occasion,
                     const lost::Findings* findings = nullptr, Naming naming = Naming::kComplete);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_TEXT_REPORT_H_
