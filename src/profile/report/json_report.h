#ifndef QKMEM_PROFILE_REPORT_JSON_REPORT_H_
#define QKMEM_PROFILE_REPORT_JSON_REPORT_H_

#include "profile/report/callers.h"
#include "profile/report/growth.h"
#include "profile/report/rows.h"
#include "support/page_buffer.h"

namespace qk::mem::profile {

/**
 * Writes all figures as one JSON object, for programs: bytes, events and nanoseconds, exact. Each
 * handle, tag and site has a line of its own. Returns whether all is there; otherwise there was no
 * memory.
 */
[[nodiscard]] bool put_json_report(qk::PageBuffer& out, const Rows& rows, Naming naming,
                                   const lost::Findings* findings = nullptr);

/**
 * Writes the growth in a period as one JSON object, with signed numbers: of handles, tags and sites
 * that hold more or less than before, or have allocated; the largest growth first. Sorts the rows.
 */
[[nodiscard]] bool put_json_growth(qk::PageBuffer& out, Growth& growth, Naming naming);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_JSON_REPORT_H_
