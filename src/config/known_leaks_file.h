#ifndef QKMEM_CONFIG_KNOWN_LEAKS_FILE_H_
#define QKMEM_CONFIG_KNOWN_LEAKS_FILE_H_

#include <cstdint>

#include "profile/report/known_leaks.h"

namespace qk::mem {

/**
 * Reads a file of known leaks into memory of the profile's own, where it stays. A line is
 * `leak:PATTERN`, `tag:TAG`, or `handle:NUMBER` or `handle:TAG`, or a comment after '#', or empty.
 * Any other is named on standard error, and the rest is used; so is a file that can't be read.
 *
 * @param source  what asks for it, for messages.
 * @param file    its name. Must stay.
 * @param known   is set; stays null if there is no memory, or no file.
 * @return 0, or the code of the first mistake: 5022 for a line, 5012 if there is no memory, 5000
 *         plus the error of the system.
 */
[[nodiscard]] std::int32_t read_known_leaks(const char* source, const char* file,
                                            profile::KnownLeaks*& known);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_KNOWN_LEAKS_FILE_H_
