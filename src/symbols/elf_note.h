#ifndef SYMBOLS_ELF_NOTE_H_
#define SYMBOLS_ELF_NOTE_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qk {

/**
 * Looks for a note in a segment of notes of an ELF file, which are aligned to `alignment`. Returns
 * what it contains, a part of `notes`; empty if there is no such note.
 *
 * @param owner  with its terminator.
 */
[[nodiscard]] std::string_view find_note(std::string_view notes, std::size_t alignment,
                                         std::string_view owner, std::uint32_t type) noexcept;

}  // namespace qk

#endif  // SYMBOLS_ELF_NOTE_H_
