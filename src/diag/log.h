#ifndef QKMEM_DIAG_LOG_H_
#define QKMEM_DIAG_LOG_H_

#include <cstddef>
#include <cstdio>
#include <string_view>

/** The log; null while there is none, and every line is then dropped. */
extern FILE* Qk_mem_log;
/** The destination that was last chosen: a file's name, or the word STDERR or STDOUT as given. */
extern char Qk_mem_log_filename[256];

extern "C" {

/**
 * Writes one line to the log: exactly the bytes that `format` gives, zero bytes too. What doesn't
 * fit 1023 characters is cut and still ends with the newline of `format`.
 *
 * @return characters written; 0 without a log; negative when the text couldn't be formatted
 * (nothing is written then) or written.
 */
[[gnu::format(printf, 1, 2)]] int qk_mem_write_log(const char* format, ...);

/** The same to a stream of the caller's, which must be open. */
[[gnu::format(printf, 2, 3)]] int qk_mem_fprintf(FILE* stream, const char* format, ...);

}  // extern "C"

namespace qk::mem {

/** Bytes of the longest line and its terminator. */
inline constexpr std::size_t kLineSize = 1024;

/** Writes a line that is complete; otherwise as qk_mem_fprintf(). */
int write_line(FILE* stream, std::string_view line);

[[nodiscard]] bool is_standard_stream(const FILE* stream);

/**
 * Opens a file for writing with fopen's `mode`, hidden from programs that this one starts. A
 * failure is told on standard output, since the log may be what couldn't be opened.
 *
 * @return null on failure.
 */
[[nodiscard]] FILE* open_output(const char* routine, const char* name, const char* mode);

/** Puts a stream, or none, in the log's place and returns the one before. */
FILE* exchange_log(FILE* stream);

/** The same; the stream before is closed unless it is standard. */
void replace_log(FILE* stream);

/** Empties the log's buffer. */
void flush_log();

/** The same, and keeps all writers out of the log until let_log_go(). */
void hold_log();
void let_log_go();

/** Tells whether the calling thread is writing to the log. */
[[nodiscard]] bool holds_log();

}  // namespace qk::mem

#endif  // QKMEM_DIAG_LOG_H_
