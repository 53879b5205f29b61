#ifndef QKMEM_CHECK_REPORT_FINDINGS_H_
#define QKMEM_CHECK_REPORT_FINDINGS_H_

#include <cstdint>

#include "check/damage.h"
#include "check/report/look.h"

/** Damage in words: told at once, and again in the report at the end, with all misuse. */
namespace qk::mem::check {

/** Tells people of damage, once for each place that has allocated a damaged block. See Teller. */
void tell_of_damage(const Damage& damage);

/** What the program has been found to do, if the checks were ever on. */
[[nodiscard]] std::uint64_t findings_so_far();

/** Writes the report of what was found so far, and ends the process by SIGABRT. */
void stop_at_finding();

/** Whether that has begun. */
[[nodiscard]] bool is_stopping();

/**
 * Writes the report of the checks, unless the profile's report has it. At a signal another thread
 * can have a lock for ever, so nothing is waited for.
 */
void write_report(Waiting waiting);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_REPORT_FINDINGS_H_
