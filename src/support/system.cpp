#include "support/system.h"

#include <sys/utsname.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "support/text.h"

namespace {

constexpr int kFirstSystemError = 5000;

}  // namespace

extern "C" {

int qk_error_no(int system_error) {
  if (system_error == 0) return 0;
  if (system_error < 0) return kFirstSystemError;
  return system_error > INT_MAX - kFirstSystemError ? INT_MAX : kFirstSystemError + system_error;
}

const char* qk_error_msg_r(int errnum, char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return "";
  const int saved = errno;
  // Not strerror_r(), which looks up a translation and allocates for it.
  const char* text = strerrordesc_np(errnum);
  const auto room = static_cast<std::size_t>(size);
  if (text != nullptr) {
    qk::copy_text(buffer, room, text);
  } else {
    std::snprintf(buffer, room, "Unknown error %d", errnum);
  }
  errno = saved;
  return buffer;
}

void qk_hostname_r(char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return;
  const int saved = errno;
  utsname names;
  const char* name = uname(&names) == 0 ? names.nodename : "";
  qk::copy_text(buffer, static_cast<std::size_t>(size), name);
  errno = saved;
}

}  // extern "C"
