#ifndef SUPPORT_FORMAT_H_
#define SUPPORT_FORMAT_H_

#include <cstdarg>
#include <cstddef>

/**
 * Formatting like the C library's functions of the same names, size modifiers as in "%zu" included.
 *
 * They write the terminated text to `buffer`, which must not be among the arguments, and return its
 * length without the terminator, or a negative number on failure. Threads: any, on buffers of their
 * own.
 */
extern "C" {

/** The buffer must be large enough, whatever the arguments are. */
int qk_sprintf(char* buffer, const char* format, ...) __attribute__((format(printf, 2, 3)));

/** The buffer must be large enough, whatever the arguments are. */
int qk_vsprintf(char* buffer, const char* format, std::va_list arguments)
    __attribute__((format(printf, 2, 0)));

/**
 * Writes at most `size` bytes, terminator included, and returns the length of the whole text:
 * `size` or more says that it was cut. `buffer` may be null when `size` is 0.
 */
int qk_vsnprintf(char* buffer, std::size_t size, const char* format, std::va_list arguments)
    __attribute__((format(printf, 3, 0)));

}  // extern "C"

#endif  // SUPPORT_FORMAT_H_
