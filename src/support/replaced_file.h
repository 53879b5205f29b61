#ifndef SUPPORT_REPLACED_FILE_H_
#define SUPPORT_REPLACED_FILE_H_

#include <string_view>

#include "support/file_version.h"

namespace qk {

/**
 * Writes a file as a whole: whoever reads it meanwhile finds the old text or the new one. The text
 * goes to a file beside it, ".tmp" and numbers longer, which then takes its name; so the folder must
 * be writable. On a failure the old file stays as it was, and the temporary file is removed; one
 * stays behind if the process ends in between. Nothing is forced to the disk.
 *
 * A new file can be read and written by all whom the umask lets; a file that was there keeps its
 * permissions, and becomes the caller's. A symbolic link stays, and the file that it leads to is
 * replaced. What is no file is written to directly: a device, a terminal, a FIFO (which someone
 * must open for reading within a second), and the descriptors behind /dev/stdout, /dev/stderr,
 * /dev/fd/N and /proc/self/fd/N, even if they are files, which their owners go on writing.
 *
 * Returns 0, or the number of the system's error. errno is preserved. The calling thread is not
 * canceled meanwhile. Allocates nothing, but needs 20 KiB of stack. Safe in a signal handler, and
 * in any thread; SIGPIPE and SIGXFSZ do what they do for every write.
 *
 * @param written  gets the version of the new file, unless there is none. Can be null.
 */
[[nodiscard]] int write_replaced_file(const char* path, std::string_view text,
                                      FileVersion* written = nullptr) noexcept;

/**
 * Removes what write_replaced_file() has written under this name, unless something else has taken
 * its place. A symbolic link stays. errno is preserved. Safe in a signal handler, and in any
 * thread.
 */
void remove_replaced_file(const char* path, FileVersion written) noexcept;

/**
 * Whether write_replaced_file() would replace a file or make a new one, and not write to what is no
 * file. errno is preserved. Safe in a signal handler, and in any thread.
 */
[[nodiscard]] bool is_file_to_replace(const char* path) noexcept;

}  // namespace qk

#endif  // SUPPORT_REPLACED_FILE_H_
