#ifndef QKMEM_PROFILE_REPORT_METRICS_REPORT_H_
#define QKMEM_PROFILE_REPORT_METRICS_REPORT_H_

#include "support/page_buffer.h"

namespace qk::mem::profile {

/**
 * Writes the figures of handles, tags and the whole for collectors, without the sites. Returns
 * whether all is there; otherwise there was no memory.
 */
[[nodiscard]] bool put_metrics_report(qk::PageBuffer& out);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_METRICS_REPORT_H_
