#include "diag/output_file.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "support/system.h"

namespace qk::mem {
namespace {

constexpr int kAttempts = 100;
constexpr timespec kBetweenAttempts = {0, 10000000};  // 10 ms

bool is_fifo(const char* name) {
  struct stat status = {};
  return ::stat(name, &status) == 0 && S_ISFIFO(status.st_mode);
}

/** -1, with errno, if there is no reader after the last attempt. */
int open_fifo(const char* name) {
  for (int attempt = 1;; ++attempt) {
    const int descriptor = ::open(name, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor >= 0 || errno != ENXIO || attempt == kAttempts) return descriptor;
    ::nanosleep(&kBetweenAttempts, nullptr);
  }
}

/** Opening a FIFO without a reader would wait for one, and hang the program's start. */
FILE* open_fifo_stream(const char* name, const char* mode) {
  const int descriptor = open_fifo(name);
  if (descriptor < 0) return nullptr;
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  FILE* stream = ::fdopen(descriptor, mode);
  if (stream == nullptr) ::close(descriptor);
  return stream;
}

FILE* open_stream(const char* name, const char* mode) {
  if (is_fifo(name)) return open_fifo_stream(name, mode);
  char hidden_mode[8];
  std::snprintf(hidden_mode, sizeof hidden_mode, "%se", mode);
  return std::fopen(name, hidden_mode);
}

}  // namespace

FILE* open_output(const char* routine, const char* name, const char* mode) {
  FILE* stream = open_stream(name, mode);
  if (stream == nullptr) {
    const int error = errno;
    char text[256];
    std::printf("   %s: WARNING: unable to open %s (%d %s)\n", routine, name, error,
                qk_error_msg_r(error, text, sizeof text));
  }
  return stream;
}

void provide_buffer(FILE* stream, StreamBuffer& buffer) {
  const int saved = errno;
  ::flockfile(stream);
  if (::__fbufsize(stream) == 0) {
    const int descriptor = ::fileno(stream);
    struct stat status = {};
    const bool is_known = ::fstat(descriptor, &status) == 0;
    const bool is_small = is_known && status.st_blksize > 0 && status.st_blksize < BUFSIZ;
    const std::size_t size = is_small ? static_cast<std::size_t>(status.st_blksize) : BUFSIZ;
    const bool is_terminal = is_known && S_ISCHR(status.st_mode) && ::isatty(descriptor) != 0;
    std::setvbuf(stream, buffer.bytes, is_terminal ? _IOLBF : _IOFBF, size);
  }
  ::funlockfile(stream);
  errno = saved;
}

void unbuffer(FILE* stream) {
  std::fflush(stream);
  std::setbuf(stream, nullptr);
}

}  // namespace qk::mem
