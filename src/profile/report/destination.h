#ifndef QKMEM_PROFILE_REPORT_DESTINATION_H_
#define QKMEM_PROFILE_REPORT_DESTINATION_H_

#include <string_view>

#include "profile/options.h"

namespace qk::mem::profile {

/**
 * Delivers a report to what REPORT= names: STDERR, STDOUT, LOG, or the pattern of a file name, see
 * qk::expand_file_name(). Every report has a number, the first one 1. A file of a later copy of the
 * library has the copy's number in its name. A failure is told once on standard error, and the
 * program goes on.
 */
void deliver(const char* report, std::string_view text);

/**
 * Writes a line about the process to where its reports go, or to standard error if they go to a
 * file, or to the log when it is closed. Writes nothing between figures that programs read.
 */
void say_beside_reports(const Options& options, std::string_view line);

/** Whether people see a report directly. Never of a file, whatever it leads to. */
[[nodiscard]] bool goes_to_terminal(const char* report);

/**
 * Removes the file of figures that collectors read while the process runs: they would take those of
 * a process that has ended for a live one's, for ever. To be called at the end. Returns false, and
 * does nothing, if there has to be a report at the end: in all other forms, in a file of its own
 * for each report, and where none was asked for before.
 *
 * A file that another process has written, such as the one before a fork, stays.
 */
[[nodiscard]] bool withdraw(const Options& options);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_DESTINATION_H_
