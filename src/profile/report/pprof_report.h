#ifndef QKMEM_PROFILE_REPORT_PPROF_REPORT_H_
#define QKMEM_PROFILE_REPORT_PPROF_REPORT_H_

#include "profile/report/callers.h"
#include "profile/report/growth.h"
#include "profile/report/rows.h"
#include "support/page_buffer.h"

namespace qk::mem::profile {

/**
 * Writes rows as a profile for `go tool pprof`. The innermost location of a sample is the place
 * that the program has named; the call stack, if there is one, stands around it. Returns whether
 * all is there; otherwise there was no memory.
 */
[[nodiscard]] bool put_pprof_report(qk::PageBuffer& out, const Rows& rows, Naming naming);

/** The same for the growth in a period. What has shrunk has negative values. */
[[nodiscard]] bool put_pprof_growth(qk::PageBuffer& out, const Growth& growth, Naming naming);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_PPROF_REPORT_H_
