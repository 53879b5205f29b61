#ifndef SUPPORT_TEXT_H_
#define SUPPORT_TEXT_H_

#include <cstddef>
#include <cstring>

/** Helpers for C strings. Letters are A to Z and a to z in every locale. Threads: any. */
extern "C" {

/**
 * Compares without regard to letter case: 0 when equal, else negative or positive as `left` sorts
 * before or behind `right`, letters as lower case. Null sorts as "".
 */
int qk_stricmp(const char* left, const char* right);

/** Counts the bytes before the terminator. Null: 0. */
std::size_t qk_strlen(const char* text);

/**
 * Finds the last component of a path: what follows the last '/', inside the same string; "" where
 * the path ends with one. Null gives the literal "(null)", so the result can always be printed.
 */
const char* qk_file_name_only(const char* path);

}  // extern "C"

namespace qk {

/** What qk_file_name_only() does, without a call of its own. */
[[nodiscard]] inline const char* file_name_only(const char* path) noexcept {
  if (path == nullptr) return "(null)";
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

/** The same letter in lower case; any other byte as it is. */
[[nodiscard]] constexpr char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/** The same letter in upper case; any other byte as it is. */
[[nodiscard]] constexpr char upper(char c) noexcept {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

/** Changes the letters of a text in place. Null: nothing happens. */
void lower_case(char* text) noexcept;
void upper_case(char* text) noexcept;

/**
 * Copies `from`, cut to what fits, to the `size` bytes at `to` and terminates it there. The two
 * must not overlap. Null `from` copies as "". Null `to` or `size` 0: nothing happens.
 */
void copy_text(char* to, std::size_t size, const char* from) noexcept;

}  // namespace qk

#endif  // SUPPORT_TEXT_H_
