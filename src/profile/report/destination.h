#ifndef QKMEM_PROFILE_REPORT_DESTINATION_H_
#define QKMEM_PROFILE_REPORT_DESTINATION_H_

#include <string_view>

namespace qk::mem::profile {

/**
 * Delivers a report to what REPORT= names: STDERR, STDOUT, LOG, or the pattern of a file name, see
 * qk::expand_file_name(). Every report has a number, the first one 1. A file of a later copy of the
 * library has the copy's number in its name. A failure is told once on standard error, and the
 * program goes on.
 */
void deliver(const char* report, std::string_view text);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_DESTINATION_H_
