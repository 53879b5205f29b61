#ifndef TESTS_KIT_PROFILE_H_
#define TESTS_KIT_PROFILE_H_

#include <cstdint>
#include <string>

#include "profile/report/rows.h"
#include "profile/report/text_report.h"

/** What the profile knows. */
namespace kit {

/** The row of the line above the call; all zero if the line has allocated nothing. */
[[nodiscard]] qk::mem::profile::Row site_above(std::string_view file = __builtin_FILE(),
                                               int line = __builtin_LINE());

/** What a site holds, and what it has ever made, as "2 for 150, made 5 for 400". */
[[nodiscard]] std::string held_by(const qk::mem::profile::Row& row);

/** The row of what belongs to no place. */
[[nodiscard]] qk::mem::profile::Row row_of(qk::mem::profile::RowKind kind);

/** The same for a place in the sources. */
[[nodiscard]] qk::mem::profile::Row site_at(std::string_view file, std::uint32_t line);

/** The pool of a handle. */
[[nodiscard]] const qk::mem::profile::Pool& pool_of(int hid);

/** What all its sites have together. */
[[nodiscard]] qk::mem::profile::PoolSums sums_of(int hid);

/**
 * What doesn't fit together in the profile, one line for each, or "". No other thread may be using
 * the library.
 */
[[nodiscard]] std::string profile_errors();

/**
 * The text report, with the time of the peak as "T s" and the profile's own memory as "M", and
 * without the tolerance of the peak.
 */
[[nodiscard]] std::string text_report(
    const char* options,
    qk::mem::profile::Occasion occasion = qk::mem::profile::Occasion::kRunning);

}  // namespace kit

#endif  // TESTS_KIT_PROFILE_H_
