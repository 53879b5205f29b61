#ifndef SUPPORT_OWN_MESSAGE_H_
#define SUPPORT_OWN_MESSAGE_H_

#include <string_view>

/** Output around the program's own streams and their buffers. For signal handlers too. */
namespace qk {

/**
 * Writes a text to a descriptor. Returns 0, or the number of the system's error. errno is
 * preserved. The calling thread is not cancelled meanwhile.
 */
[[nodiscard]] int write_text(int descriptor, std::string_view text) noexcept;

/** Writes a line of the library to standard error. Nothing could be done about a failure. */
void write_message(std::string_view line) noexcept;

}  // namespace qk

#endif  // SUPPORT_OWN_MESSAGE_H_
