#include "diag/output_file.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <iterator>

#include "support/fifo.h"
#include "support/no_cancellation.h"
#include "support/shared_variable.h"
#include "support/shortcuts.h"
#include "support/system.h"

namespace qk::mem {
namespace {

void close_keeping_errno(int descriptor) {
  const int error = errno;
  ::close(descriptor);
  errno = error;
}

FILE* open_fifo_stream(const char* name, const char* mode) {
  const int descriptor = qk::open_fifo(name);
  if (descriptor < 0) return nullptr;
  FILE* stream = ::fdopen(descriptor, mode);
  if (stream == nullptr) close_keeping_errno(descriptor);
  return stream;
}

/**
 * Notes that this process writes to a file. False if it does so already: a second copy of the
 * library, in a plug-in for instance, reads the same environment. The note is a lock of one byte,
 * whose position is the number of the process; it ends with the last descriptor.
 */
bool is_first_writer(int descriptor) {
  struct flock byte = {};
  byte.l_type = F_WRLCK;
  byte.l_whence = SEEK_SET;
  byte.l_start = ::getpid();
  byte.l_len = 1;
  return ::fcntl(descriptor, F_OFD_SETLK, &byte) == 0 || (errno != EAGAIN && errno != EACCES);
}

/** Empties a regular file. False, with errno, if that fails. */
bool make_empty(int descriptor) {
  struct stat status = {};
  return ::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
         ::ftruncate(descriptor, 0) == 0;
}

/** Every line goes to the end of the file, so that several writers do not overwrite each other. */
FILE* open_file_stream(const char* name, const char* mode) {
  constexpr mode_t kForAll = 0666;
  const int descriptor = ::open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kForAll);
  if (descriptor < 0) return nullptr;
  const bool anew = is_first_writer(descriptor) && mode[0] == 'w';
  FILE* stream = anew && !make_empty(descriptor) ? nullptr : ::fdopen(descriptor, mode);
  if (stream == nullptr) close_keeping_errno(descriptor);
  return stream;
}

FILE* open_stream(const char* name, const char* mode) {
  return qk::is_fifo(name) ? open_fifo_stream(name, mode) : open_file_stream(name, mode);
}

}  // namespace

FILE* open_output(const char* routine, const char* name, const char* mode) {
  const qk::NoCancellation no_cancellation;
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

bool append_to_buffer(FILE* stream, std::string_view text) {
  if (!qk::kShortcuts || !qk::is_single_threaded()) return false;
  // The C library has these members in its headers for putc_unlocked(). Streams of wide characters
  // have another buffer, and a line can end in the buffer only if setvbuf() came after it was used.
  const bool buffers_bytes = stream->_mode < 0 && ::__flbf(stream) == 0;
  if (!buffers_bytes || stream->_IO_write_end - stream->_IO_write_ptr < std::ssize(text)) {
    return false;
  }
  text.copy(stream->_IO_write_ptr, text.size());
  std::atomic_signal_fence(std::memory_order_release);  // a signal finds whole texts only
  stream->_IO_write_ptr += text.size();
  return true;
}

void unbuffer(FILE* stream) {
  const qk::NoCancellation no_cancellation;
  std::fflush(stream);
  std::setbuf(stream, nullptr);
}

}  // namespace qk::mem
