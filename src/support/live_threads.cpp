#include "support/live_threads.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/single_threaded.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace qk {
namespace {

/** Closes a descriptor at the end of its scope. Allocates nothing, unlike a stream. */
class Descriptor {
 public:
  Descriptor(int folder, const char* path, int flags) noexcept
      : number_(::openat(folder, path, flags | O_RDONLY | O_CLOEXEC)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  [[nodiscard]] int number() const noexcept { return number_; }

 private:
  int number_;
};

/** The text behind the `count`th blank, or "". */
std::string_view after_blanks(std::string_view text, int count) {
  for (; count > 0; --count) {
    const std::size_t blank = text.find(' ');
    if (blank == std::string_view::npos) return {};
    text.remove_prefix(blank + 1);
  }
  return text;
}

/**
 * Whether a line of /proc/<pid>/stat is that of a task that is ending, "1 (name) S 2 3 4 5 6 flags
 * ...". The name can have blanks and parentheses. The kernel sets this flag before pthread_join()
 * returns, but lists the task a little longer.
 */
bool is_ending(std::string_view line) {
  constexpr unsigned kExiting = 4;
  const std::size_t name_end = line.rfind(')');
  if (name_end == std::string_view::npos) return false;
  const std::string_view text = after_blanks(line.substr(name_end), 7);
  unsigned flags = 0;
  std::from_chars(text.data(), text.data() + text.size(), flags);
  return (flags & kExiting) != 0;
}

/** Whether a task of /proc/self/task runs. False if the kernel has removed it by now. */
bool is_running(int tasks, const dirent64& task) {
  char path[sizeof task.d_name + sizeof "/stat"];
  std::snprintf(path, sizeof path, "%s/stat", task.d_name);
  const Descriptor file(tasks, path, 0);
  if (file.number() < 0) return errno != ENOENT;
  char line[512];
  const ssize_t length = ::read(file.number(), line, sizeof line);
  if (length <= 0) return errno != ESRCH;
  return !is_ending({line, static_cast<std::size_t>(length)});
}

bool is_other_thread(int tasks, const dirent64& task) {
  if (task.d_name[0] == '.') return false;
  int number = 0;
  std::from_chars(task.d_name, task.d_name + std::strlen(task.d_name), number);
  return number != ::gettid() && is_running(tasks, task);
}

#if defined(__SANITIZE_THREAD__)
constexpr int kThreadsOfSanitizer = 1;
#else
constexpr int kThreadsOfSanitizer = 0;
#endif

/** Looks at each task. A sanitizer's own threads use no handles. */
bool finds_other_thread() {
  const Descriptor tasks(AT_FDCWD, "/proc/self/task", O_DIRECTORY);
  alignas(dirent64) char entries[2048];
  int others = 0;
  for (;;) {
    const ssize_t bytes = ::getdents64(tasks.number(), entries, sizeof entries);
    if (bytes <= 0) return bytes < 0;
    for (ssize_t at = 0; at < bytes;) {
      const auto& task = *reinterpret_cast<const dirent64*>(entries + at);
      if (is_other_thread(tasks.number(), task) && ++others > kThreadsOfSanitizer) return true;
      at += task.d_reclen;
    }
  }
}

}  // namespace

bool has_other_threads() noexcept {
  if (__libc_single_threaded != 0) return false;
  const int error = errno;
  const bool found = finds_other_thread();
  errno = error;
  return found;
}

}  // namespace qk
