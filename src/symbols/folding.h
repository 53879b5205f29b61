#ifndef SYMBOLS_FOLDING_H_
#define SYMBOLS_FOLDING_H_

#include <cstddef>
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
 * Gives the pieces of a name without its types, and without anonymous namespaces, which tell
 * nothing, to `put`.
 */
template <class Put>
void put_short_name(std::string_view function, Put put) {
  constexpr std::string_view kAnonymous = "(anonymous namespace)::";
  function = without_types(function);
  for (std::size_t at = function.find(kAnonymous); at != std::string_view::npos;
       at = function.find(kAnonymous)) {
    put(function.substr(0, at));
    function.remove_prefix(at + kAnonymous.size());
  }
  put(function);
}

/**
 * Whether a frame is of this library, of the C++ library, or of what starts programs and threads,
 * or matches one of the patterns, by its function or by its module's file name. Patterns are
 * separated by commas, with or without blanks: "sqlite3*, libfoo.so".
 */
[[nodiscard]] bool is_folded(const Frame& frame, std::string_view skip) noexcept;

/**
 * Whether a frame is on the way from the program to where its stack is captured. A program that
 * contains the library has such frames at the beginning of its stacks.
 */
[[nodiscard]] bool is_inside_library(const Frame& frame) noexcept;

/** Takes those frames out of the beginning of a stack. Returns how many remain. */
[[nodiscard]] int leave_library(Frame* frames, int count) noexcept;

/**
 * Takes the folded frames out of a stack, innermost first; if all are, leaves the innermost one.
 * Returns how many remain.
 */
[[nodiscard]] int visible_frames(Frame* frames, int count, std::string_view skip) noexcept;

}  // namespace qk

#endif  // SYMBOLS_FOLDING_H_
