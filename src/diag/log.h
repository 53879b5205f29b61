#ifndef QKMEM_DIAG_LOG_H_
#define QKMEM_DIAG_LOG_H_

#include <cstddef>
#include <cstdio>
#include <string_view>

/** The log. Lines are dropped while it is null. */
[[gnu::visibility("hidden")]] extern FILE* Qk_mem_log;
/** The destination chosen last: a file name, or STDERR or STDOUT as the user wrote it. */
[[gnu::visibility("hidden")]] extern char Qk_mem_log_filename[256];

extern "C" {

/**
 * Writes one line to the log: exactly the bytes of the formatted text, zero bytes included. A line
 * of more than 1023 characters is cut and still ends with the newline of `format`.
 *
 * @return the characters written; 0 without a log; negative if formatting failed (nothing is
 *         written then) or writing failed.
 */
[[gnu::format(printf, 1, 2)]] int qk_mem_write_log(const char* format, ...);

/** The same to any open stream. */
[[gnu::format(printf, 2, 3)]] int qk_mem_fprintf(FILE* stream, const char* format, ...);

}  // extern "C"

namespace qk::mem {

/** Bytes of the longest line and its terminator. */
inline constexpr std::size_t kLineSize = 1024;

/** Writes a complete line. Returns as qk_mem_fprintf(). */
int write_line(FILE* stream, std::string_view line);

[[nodiscard]] bool is_standard_stream(const FILE* stream);

/** Replaces the log by a stream, or by null. Closes the stream before unless it is standard. */
void replace_log(FILE* stream);

/** Gives a stream that becomes the log, or is the log at a signal, a buffer of its own. */
void provide_log_buffer(FILE* stream);

/** Flushes the log. */
void flush_log();

/** Flushes the log, and writes each line at once from now on. */
void unbuffer_log();

/**
 * Collects all lines of the log from now on, and hands them to it at once, in commit_lines().
 *
 * A signal can stop a thread under a lock, so that a report may never be finished: the process is
 * then ended by force. The log gets the whole report or none of it.
 */
void stage_lines();
void commit_lines();

/** Flushes the log and locks it against other writers until let_log_go(). */
void hold_log();
void let_log_go();

/** Whether the calling thread is writing to the log. */
[[nodiscard]] bool holds_log();

/** Lets the threads that wait for the log look again, see Mtx::wake_sleepers(). */
void wake_log_waiters();

/** See Mtx::forget_waiters(). */
void forget_log_waiters();

}  // namespace qk::mem

#endif  // QKMEM_DIAG_LOG_H_
