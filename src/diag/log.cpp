#include "diag/log.h"

#include <atomic>
#include <cstdarg>
#include <cstring>

#include "diag/output_file.h"
#include "support/format.h"
#include "support/mtx_lock.h"
#include "support/no_cancellation.h"
#include "support/page_buffer.h"
#include "support/shared_variable.h"

constinit FILE* Qk_mem_log = nullptr;
constinit char Qk_mem_log_filename[256] = {};

namespace qk::mem {
namespace {

/**
 * Keeps the log open while a thread writes to it. Only the lock of Qk_mem_error may be taken under
 * it.
 */
constinit qk::Mtx log_mutex;

/** Lines between stage_lines() and commit_lines(). */
constinit qk::PageBuffer staged_lines QK_GUARDED_BY(log_mutex);
constinit std::atomic<bool> are_lines_staged{false};

/** Of the one log that is open at a time. */
constinit StreamBuffer log_buffer = {};

bool ends_with_newline(const char* format) {
  const std::size_t length = std::strlen(format);
  return length > 0 && format[length - 1] == '\n';
}

/** Formats into `line`. Returns the number of bytes, which may include zero bytes. */
int format_line(char (&line)[kLineSize], const char* format, va_list args) {
  const int length = qk_vsnprintf(line, kLineSize, format, args);
  if (length < static_cast<int>(kLineSize)) return length;
  if (ends_with_newline(format)) line[kLineSize - 2] = '\n';
  return static_cast<int>(kLineSize) - 1;
}

void write_staged_lines() QK_REQUIRES(log_mutex) {
  log_mutex.assert_held();
  are_lines_staged = false;
  const std::string_view lines = staged_lines.text();
  if (Qk_mem_log != nullptr && !lines.empty()) {
    std::fwrite(lines.data(), 1, lines.size(), Qk_mem_log);
  }
  staged_lines.clear();
}

/** Without memory for the lines, the log gets them as they come. */
bool stage_line(const FILE* stream, std::string_view line) {
  if (!are_lines_staged) return false;
  const qk::MtxLock lock(log_mutex);
  if (!are_lines_staged || stream != Qk_mem_log) return false;
  if (staged_lines.append(line)) return true;
  write_staged_lines();
  return false;
}

FILE* exchange_log(FILE* stream) {
  const qk::MtxLock lock(log_mutex);
  FILE* before = Qk_mem_log;
  qk::publish(Qk_mem_log, stream);
  return before;
}

int write_bytes(FILE* stream, const char* bytes, int length) {
  return write_line(stream, {bytes, static_cast<std::size_t>(length)});
}

}  // namespace

int write_line(FILE* stream, std::string_view line) {
  if (!are_lines_staged && append_to_buffer(stream, line)) return static_cast<int>(line.size());
  const qk::NoCancellation no_cancellation;
  if (stage_line(stream, line)) return static_cast<int>(line.size());
  const bool written = std::fwrite(line.data(), 1, line.size(), stream) == line.size();
  return written ? static_cast<int>(line.size()) : EOF;
}

bool is_standard_stream(const FILE* stream) { return stream == stdout || stream == stderr; }

void replace_log(FILE* stream) {
  const qk::NoCancellation no_cancellation;
  FILE* before = exchange_log(stream);
  if (before != nullptr && !is_standard_stream(before)) std::fclose(before);
}

void provide_log_buffer(FILE* stream) { provide_buffer(stream, log_buffer); }

void flush_log() {
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock lock(log_mutex);
  if (Qk_mem_log != nullptr) std::fflush(Qk_mem_log);
}

void unbuffer_log() {
  const qk::MtxLock lock(log_mutex);
  if (Qk_mem_log != nullptr) unbuffer(Qk_mem_log);
}

void stage_lines() {
  const qk::MtxLock lock(log_mutex);
  are_lines_staged = Qk_mem_log != nullptr;
}

void commit_lines() {
  const qk::MtxLock lock(log_mutex);
  write_staged_lines();
  // A standard stream is not closed before the signal ends the process.
  if (Qk_mem_log != nullptr) std::fflush(Qk_mem_log);
}

void hold_log() QK_UNCHECKED_LOCKING {
  log_mutex.lock();
  flush_log();
}

void let_log_go() QK_UNCHECKED_LOCKING { log_mutex.unlock(); }

bool holds_log() { return log_mutex.held(); }

void wake_log_waiters() { log_mutex.wake_sleepers(); }

void forget_log_waiters() { log_mutex.forget_waiters(); }

}  // namespace qk::mem

extern "C" int qk_mem_write_log(const char* format, ...) {
  using namespace qk::mem;
  if (qk::acquire(Qk_mem_log) == nullptr) return 0;
  char line[kLineSize];
  va_list args;
  va_start(args, format);
  const int length = format_line(line, format, args);
  va_end(args);
  if (length < 0) return length;
  const qk::MtxLock lock(log_mutex);
  return Qk_mem_log == nullptr ? 0 : write_bytes(Qk_mem_log, line, length);
}

extern "C" int qk_mem_fprintf(FILE* stream, const char* format, ...) {
  using namespace qk::mem;
  char line[kLineSize];
  va_list args;
  va_start(args, format);
  const int length = format_line(line, format, args);
  va_end(args);
  return length < 0 ? length : write_bytes(stream, line, length);
}
