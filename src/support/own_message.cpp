#include "support/own_message.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "support/keep_errno.h"
#include "support/no_cancellation.h"

namespace qk {
namespace {

/** Waits until a descriptor that doesn't wait by itself can be written to again. */
void wait_for(int descriptor) {
  pollfd waiting = {.fd = descriptor, .events = POLLOUT, .revents = 0};
  ::poll(&waiting, 1, -1);
}

}  // namespace

int write_text(int descriptor, std::string_view text) noexcept {
  const NoCancellation no_cancellation;
  const KeepErrno keep_errno;
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0) {
      return EIO;
    } else if (errno == EAGAIN) {
      wait_for(descriptor);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

void write_message(std::string_view line) noexcept {
  static_cast<void>(write_text(STDERR_FILENO, line));
}

}  // namespace qk
