#ifndef SYMBOLS_FOLDING_H_
#define SYMBOLS_FOLDING_H_

#include <string_view>

#include "symbols/names.h"

/** Which frames of a stack a report shows: those that tell a reader who wanted the memory. */
namespace qk {

/**
 * Whether a text has a pattern in it. A pattern with '*' (any bytes) or '?' (one byte) must match
 * the whole text. Letters match themselves only.
 */
[[nodiscard]] bool matches(std::string_view text, std::string_view pattern) noexcept;

/** A demangled name without the return type that names of templates begin with. */
[[nodiscard]] std::string_view without_return_type(std::string_view function) noexcept;

/** A demangled name without return type and parameters: "qk::Site::Site". */
[[nodiscard]] std::string_view without_types(std::string_view function) noexcept;

/**
 * Whether a frame is of this library, of the C++ library, or of what starts programs and threads,
 * or matches one of the patterns, by its function or by its module's file name. Patterns are
 * separated by commas, with or without blanks: "sqlite3*, libfoo.so".
 */
[[nodiscard]] bool is_folded(const Frame& frame, std::string_view skip) noexcept;

/**
 * Takes the folded frames out of a stack, innermost first; if all are, leaves the innermost one.
 * Returns how many remain.
 */
[[nodiscard]] int visible_frames(Frame* frames, int count, std::string_view skip) noexcept;

}  // namespace qk

#endif  // SYMBOLS_FOLDING_H_
