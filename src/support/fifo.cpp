#include "support/fifo.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>

namespace qk {
namespace {

constexpr int kAttempts = 100;
constexpr int kBetweenAttempts = 10;  // milliseconds

/** -1, with errno, if there is no reader after the last attempt. */
int open_without_waiting(const char* name) {
  for (int attempt = 1;; ++attempt) {
    const int descriptor = ::open(name, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor >= 0 || errno != ENXIO || attempt == kAttempts) return descriptor;
    ::poll(nullptr, 0, kBetweenAttempts);
  }
}

}  // namespace

bool is_fifo(const char* name) noexcept {
  struct stat status = {};
  return ::stat(name, &status) == 0 && S_ISFIFO(status.st_mode);
}

int open_fifo(const char* name) noexcept {
  const int descriptor = open_without_waiting(name);
  if (descriptor >= 0) ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  return descriptor;
}

}  // namespace qk
