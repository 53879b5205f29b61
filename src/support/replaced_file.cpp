#include "support/replaced_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "support/cursor.h"
#include "support/fifo.h"
#include "support/keep_errno.h"
#include "support/no_cancellation.h"
#include "support/own_message.h"

namespace qk {
namespace {

/** A path with its terminator. */
class Path {
 public:
  /** False if it is too long. */
  [[nodiscard]] bool set(std::string_view front, std::string_view rest = {}) {
    if (front.size() + rest.size() >= sizeof text_) return false;
    front.copy(text_, front.size());
    rest.copy(text_ + front.size(), rest.size());
    text_[front.size() + rest.size()] = '\0';
    return true;
  }

  [[nodiscard]] const char* c_str() const { return text_; }
  [[nodiscard]] std::string_view text() const { return text_; }

  /** All up to the last slash. */
  [[nodiscard]] std::string_view folder() const {
    const std::string_view all = text();
    return all.substr(0, all.rfind('/') + 1);
  }

 private:
  char text_[PATH_MAX];
};

/** Writes to a descriptor and closes it: some systems report a full disk only then. */
int write_and_close(int descriptor, std::string_view text) {
  const int error = write_text(descriptor, text);
  const bool is_closed = ::close(descriptor) == 0 || errno == EINTR;
  return error == 0 && !is_closed ? errno : error;
}

int write_directly(const char* path, std::string_view text) {
  const int descriptor =
      is_fifo(path) ? open_fifo(path) : ::open(path, O_WRONLY | O_NOCTTY | O_CLOEXEC);
  return descriptor < 0 ? errno : write_and_close(descriptor, text);
}

/** The number that a path ends with after a folder of descriptors, otherwise -1. */
int number_in(std::string_view path, std::string_view folder) {
  if (!path.starts_with(folder)) return -1;
  path.remove_prefix(folder.size());
  if (path.empty() || path.size() > 9) return -1;
  int number = 0;
  for (const char c : path) {
    if (c < '0' || c > '9') return -1;
    number = 10 * number + (c - '0');
  }
  return number;
}

/** The descriptor of this process that a path stands for, or -1. */
int descriptor_of(std::string_view path) {
  if (path == "/dev/stdout") return STDOUT_FILENO;
  if (path == "/dev/stderr") return STDERR_FILENO;
  const int number = number_in(path, "/dev/fd/");
  return number >= 0 ? number : number_in(path, "/proc/self/fd/");
}

/** Replaces a symbolic link by where it leads. 0 if the path is no link, otherwise 1 or -error. */
int follow_link(Path& path) {
  char link[PATH_MAX];
  const ssize_t length = ::readlink(path.c_str(), link, sizeof link);
  if (length <= 0) return 0;  // what else is wrong with the path shows when it is opened
  const std::string_view target(link, static_cast<std::size_t>(length));
  const Path from = path;
  const bool fits = path.set(target[0] == '/' ? std::string_view() : from.folder(), target);
  return fits ? 1 : -ENAMETOOLONG;
}

/** Creates a file beside another one, and returns its descriptor, or -1 with errno. */
int create_beside(const Path& path, mode_t mode, Path& created) {
  constexpr int kAttempts = 100;  // a process of the same number can have left such files
  constinit static std::atomic<std::uint64_t> count = 0;
  for (int attempt = 1;; ++attempt) {
    char text[2 * Cursor::kLongestNumber + 8 + Cursor::kOverrun];
    Cursor suffix(text);
    suffix.put(".tmp").signed_number(::getpid()).put('.').number(count.fetch_add(1));
    if (!created.set(path.text(), suffix.text())) {
      errno = ENAMETOOLONG;
      return -1;
    }
    const int descriptor = ::open(created.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor >= 0 || errno != EEXIST || attempt == kAttempts) return descriptor;
  }
}

/** @param old_mode  null if there is no such file yet. */
int replace(const Path& path, const mode_t* old_mode, std::string_view text, FileVersion* written) {
  constexpr mode_t kForAll = 0666;
  constexpr mode_t kPermissions = 0777;
  const mode_t mode = old_mode == nullptr ? kForAll : *old_mode & kPermissions;
  Path temporary;
  const int descriptor = create_beside(path, mode, temporary);
  if (descriptor < 0) return errno;
  // If this fails, fewer can read the file than before.
  if (old_mode != nullptr) (void)::fchmod(descriptor, mode);
  int error = write_and_close(descriptor, text);
  struct stat status = {};
  if (error == 0 && ::stat(temporary.c_str(), &status) != 0) error = errno;
  if (error == 0 && std::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) ::unlink(temporary.c_str());
  if (error == 0 && written != nullptr) *written = version_of(status);
  return error;
}

/** What a path leads to. */
struct Target {
  enum class Kind : std::uint8_t { kError, kDescriptor, kFile, kNewFile, kOther };

  Kind kind;
  int number = 0;           // of the error, or of the descriptor
  struct stat status = {};  // of a file, and of what is none
};

/** Follows links: `path` becomes that of what they lead to. */
Target find_target(Path& path) {
  constexpr int kMostLinks = 40;  // as the system
  for (int links = 0; links <= kMostLinks; ++links) {
    const int descriptor = descriptor_of(path.text());
    if (descriptor >= 0) return {Target::Kind::kDescriptor, descriptor};
    const int followed = follow_link(path);
    if (followed < 0) return {Target::Kind::kError, -followed};
    if (followed > 0) continue;
    Target target = {Target::Kind::kNewFile};
    if (::stat(path.c_str(), &target.status) != 0) return target;
    target.kind = S_ISREG(target.status.st_mode) ? Target::Kind::kFile : Target::Kind::kOther;
    return target;
  }
  return {Target::Kind::kError, ELOOP};
}

int write_to(Path& path, std::string_view text, FileVersion* written) {
  const Target target = find_target(path);
  switch (target.kind) {
    case Target::Kind::kError:
      return target.number;
    case Target::Kind::kDescriptor:
      return write_text(target.number, text);
    case Target::Kind::kFile:
      return replace(path, &target.status.st_mode, text, written);
    case Target::Kind::kNewFile:
      return replace(path, nullptr, text, written);
    case Target::Kind::kOther:
      return write_directly(path.c_str(), text);
  }
  return EINVAL;
}

}  // namespace

int write_replaced_file(const char* path, std::string_view text, FileVersion* written) noexcept {
  const NoCancellation no_cancellation;
  const KeepErrno keep_errno;
  if (path == nullptr || *path == '\0') return ENOENT;
  Path followed;
  return followed.set(path) ? write_to(followed, text, written) : ENAMETOOLONG;
}

void remove_replaced_file(const char* path, FileVersion written) noexcept {
  const KeepErrno keep_errno;
  Path followed;
  if (!followed.set(path)) return;
  const Target target = find_target(followed);
  const bool is_there = target.kind == Target::Kind::kFile && version_of(target.status) == written;
  if (is_there) ::unlink(followed.c_str());
}

bool is_file_to_replace(const char* path) noexcept {
  const KeepErrno keep_errno;
  Path followed;
  if (!followed.set(path)) return false;
  const Target target = find_target(followed);
  return target.kind == Target::Kind::kFile || target.kind == Target::Kind::kNewFile;
}

}  // namespace qk
