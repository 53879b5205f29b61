#ifndef QKMEM_PROFILE_REPORT_REPORT_H_
#define QKMEM_PROFILE_REPORT_REPORT_H_

#include "profile/report/text_report.h"
#include "support/mtx.h"

namespace qk::mem::profile {

/**
 * Writes the report where the options say, if the profile was ever on. For signal handlers with
 * Naming::kAtASignal. With complete names it can wait for the dynamic linker: a caller with the
 * registry's lock could be what a thread in there waits for.
 */
void write_report(Occasion occasion, Naming naming);

/**
 * Guards what names functions, and the number of the report. Taken before the log's lock, since a
 * report can go to the log.
 */
extern qk::Mtx report_lock;

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_REPORT_H_
