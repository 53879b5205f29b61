#ifndef QKMEM_CONFIG_CHECK_OPTIONS_H_
#define QKMEM_CONFIG_CHECK_OPTIONS_H_

#include <cstdint>

#include "check/report/options.h"

namespace qk::mem {

/** Reads the options of the checks, as read_profile_options() does those of the profile. */
[[nodiscard]] std::int32_t read_check_options(const char* source, char* text,
                                              check::Options& options);

/** Whether an option string asks for a code of its own for findings, or seems to. */
[[nodiscard]] bool mentions_findings(const char* text);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_CHECK_OPTIONS_H_
