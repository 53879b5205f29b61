#ifndef TESTS_KIT_PROFILE_H_
#define TESTS_KIT_PROFILE_H_

#include <cstdint>
#include <string>

#include "profile/report/growth.h"
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

/** What qk_mem_profile_report() has written, with times as "T s" and own memory as "M". */
struct Requested {
  int code;
  std::string text;
};
[[nodiscard]] Requested requested(const char* options);

/** What has grown or shrunk, by place, as "a.c:1 +100 in +1 a.c:2 -10 in -1". */
[[nodiscard]] std::string growth(const char* options);

/** The growth of a place in the sources. */
[[nodiscard]] qk::mem::profile::Change growth_at(const char* options, std::string_view file,
                                                 std::uint32_t line);

}  // namespace kit

#endif  // TESTS_KIT_PROFILE_H_
