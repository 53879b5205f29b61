#include "support/own_message.h"

#include <unistd.h>

#include <cerrno>

#include "support/keep_errno.h"
#include "support/no_cancellation.h"

namespace qk {

int write_text(int descriptor, std::string_view text) noexcept {
  const NoCancellation no_cancellation;
  const KeepErrno keep_errno;
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

void write_message(std::string_view line) noexcept {
  static_cast<void>(write_text(STDERR_FILENO, line));
}

}  // namespace qk
