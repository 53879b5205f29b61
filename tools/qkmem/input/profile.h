#ifndef QKMEM_TOOLS_INPUT_PROFILE_H_
#define QKMEM_TOOLS_INPUT_PROFILE_H_

#include <string>
#include <string_view>
#include <vector>

#include "input/input.h"

/** The profile's report as JSON: what sites hold and have made, without events. */
namespace qk::command {

/** Whether bytes can be the begin of such a report. */
[[nodiscard]] bool begins_profile(std::string_view bytes);

/**
 * Books the figures of a report in a ledger. Returns what a user should know of them. Throws
 * InputError, with `name` for the input.
 */
[[nodiscard]] std::vector<std::string> read_profile(std::string_view text, const std::string& name,
                                                    Ledger& ledger);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_PROFILE_H_
