#ifndef QKMEM_CONFIG_PROFILE_OPTIONS_H_
#define QKMEM_CONFIG_PROFILE_OPTIONS_H_

#include <cstdint>

#include "profile/options.h"
#include "profile/report/growth.h"

namespace qk::mem {

/**
 * Reads the options of the profile, which have no limit of their length. Each word that is not
 * understood is named on standard error, with the nearest keyword, and the rest is used: with a
 * mistake in the options a report must never look as if nothing leaked.
 *
 * @param source   what the options come from, for the messages.
 * @param text     is written into. Values in the result point into it.
 * @param options  is filled.
 * @return 0, or the code of the first mistake: 10041 to 10044 as of other option strings, 5022 for
 *         a value that is not understood.
 */
[[nodiscard]] std::int32_t read_profile_options(const char* source, char* text,
                                                profile::Options& options);

/** What a program asks of a report. */
struct ReportRequest {
  profile::Options options;
  profile::GrowthQuery growth;
};

/** Reads the options of one report into a request that has those in force. As above. */
[[nodiscard]] std::int32_t read_report_options(const char* source, char* text,
                                               ReportRequest& request);

/** Reads which sites' growth is wanted. As above, but with a mistake there is no answer. */
[[nodiscard]] std::int32_t read_growth_filter(const char* source, char* text,
                                              profile::GrowthQuery& query);

/** Reads the number of a handle. False if none can have it. */
[[nodiscard]] bool read_handle(const char* value, profile::SiteFilter& filter);

/** Reads a tag; as in other filters, NONE stands for handles without one. False if it is none. */
[[nodiscard]] bool read_tag(const char* value, profile::SiteFilter& filter);

/** Whether an option string asks for stacks, or seems to. */
[[nodiscard]] bool mentions_stacks(const char* text);

/** Whether it asks for a code of its own for processes with leaks, or seems to. */
[[nodiscard]] bool mentions_leaks(const char* text);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_PROFILE_OPTIONS_H_
