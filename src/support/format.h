#ifndef SUPPORT_FORMAT_H_
#define SUPPORT_FORMAT_H_

#include <cstdarg>
#include <cstddef>

/**
 * Format like the C library's functions of the same names, including size modifiers as in "%zu".
 *
 * They write the terminated text to `buffer`, which must not be among the arguments. They return
 * its length without the terminator, or a negative number on failure. Threads: any, each with a
 * buffer of its own.
 */
extern "C" {

/** The buffer must be large enough for any arguments. */
int qk_sprintf(char* buffer, const char* format, ...) __attribute__((format(printf, 2, 3)));

/** The buffer must be large enough for any arguments. */
int qk_vsprintf(char* buffer, const char* format, std::va_list arguments)
    __attribute__((format(printf, 2, 0)));

/**
 * Writes at most `size` bytes, including the terminator, and returns the length of the whole text.
 * If that is `size` or more, the text was cut. `buffer` may be null if `size` is 0.
 */
int qk_vsnprintf(char* buffer, std::size_t size, const char* format, std::va_list arguments)
    __attribute__((format(printf, 3, 0)));

}  // extern "C"

#endif  // SUPPORT_FORMAT_H_
