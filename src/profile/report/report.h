#ifndef QKMEM_PROFILE_REPORT_REPORT_H_
#define QKMEM_PROFILE_REPORT_REPORT_H_

#include <cstdint>

#include "lost/findings.h"
#include "profile/options.h"
#include "profile/report/growth.h"
#include "profile/report/text_report.h"
#include "profile/report/verdict.h"
#include "support/mtx.h"
#include "support/page_buffer.h"

namespace qk::mem::profile {

/**
 * Writes the report where the options say, if the profile was ever on. For signal handlers with
 * Naming::kAtASignal. With complete names it can wait for the dynamic linker: a caller with the
 * registry's lock could be what a thread in there waits for.
 *
 * @return what the report says. Of nothing if there was no memory for it.
 */
Verdict write_report(Occasion occasion, Naming naming, const lost::Findings* findings = nullptr);

/** The options in force. */
[[nodiscard]] Options options_now();

/**
 * Appends the report, or that of growth if one is asked for. If there is none, a line says why.
 *
 * @return 0; 5061 if the profile was never on; 5002 for an unknown snapshot; 5022 for a period that
 *         ends before it begins, or a form that there isn't; 5012 if there is no memory.
 */
[[nodiscard]] std::int32_t put_requested_report(qk::PageBuffer& text, const Options& options,
                                                const GrowthQuery& growth);

/**
 * Appends the report with what a search for lost blocks has found, for people or as JSON.
 *
 * @return 0; 5012 if there is no memory; 5095 if there was no search, which the report says too.
 */
[[nodiscard]] std::int32_t put_lost_report(qk::PageBuffer& text, const Options& options,
                                           const lost::Findings& findings);

/** Writes the same as put_requested_report() where the options say. */
void write_requested_report(const Options& options, const GrowthQuery& growth);

/**
 * Guards what names functions, and the number of the report. Taken before the log's lock, since a
 * report can go to the log.
 */
[[gnu::visibility("hidden")]] extern qk::Mtx report_lock;

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_REPORT_H_
