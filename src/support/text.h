#ifndef SUPPORT_TEXT_H_
#define SUPPORT_TEXT_H_

#include <cstddef>
#include <cstring>

/** Functions for C strings. Letters are A to Z and a to z in every locale. Safe in any thread. */
extern "C" {

/**
 * Compares two strings, ignoring case. Returns 0 if they are equal, otherwise a negative or
 * positive number if `left` sorts before or after `right` in lower case. Null counts as "".
 */
int qk_stricmp(const char* left, const char* right);

/** Returns the number of bytes before the terminator, or 0 for null. */
std::size_t qk_strlen(const char* text);

/**
 * Returns the last component of a path, which is a pointer into it: what follows the last '/', and
 * "" if the path ends with one. Returns "(null)" for null, so that the result can be printed.
 */
const char* qk_file_name_only(const char* path);

}  // extern "C"

namespace qk {

/** Same as qk_file_name_only(), but inline. */
[[nodiscard]] inline const char* file_name_only(const char* path) noexcept {
  if (path == nullptr) return "(null)";
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

/** Returns a letter in lower case, and any other byte unchanged. */
[[nodiscard]] constexpr char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/** Returns a letter in upper case, and any other byte unchanged. */
[[nodiscard]] constexpr char upper(char c) noexcept {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

/** Converts the letters of a text in place. Does nothing for null. */
void lower_case(char* text) noexcept;
void upper_case(char* text) noexcept;

/**
 * Copies `from` to the `size` bytes at `to`, cut to what fits, and terminates it. The two must not
 * overlap. Null `from` counts as "". Does nothing if `to` is null or `size` is 0.
 */
void copy_text(char* to, std::size_t size, const char* from) noexcept;

}  // namespace qk

#endif  // SUPPORT_TEXT_H_
