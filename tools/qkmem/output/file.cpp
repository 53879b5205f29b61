#include "output/file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>

namespace qk::command {
namespace {

/** The file that is being written; empty if there is none. A handler can read it at any time. */
char unfinished[PATH_MAX + 1] = {};

void remove_unfinished() {
  if (unfinished[0] != '\0') unlink(unfinished);
  unfinished[0] = '\0';
}

void end_by_signal(int signal) {
  remove_unfinished();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

bool write_all(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

void remove_unfinished_at_signals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, &end_by_signal);
}

void refuse_existing(const std::string& name, bool may_overwrite) {
  if (!may_overwrite && access(name.c_str(), F_OK) == 0) {
    throw OutputError(name + " exists: -f overwrites it");
  }
}

NewFile::NewFile(std::string name, bool may_overwrite) : name_(std::move(name)) {
  refuse_existing(name_, may_overwrite);
  const std::string other = name_ + ".unfinished";
  if (other.size() > PATH_MAX) throw OutputError(name_ + ": " + std::strerror(ENAMETOOLONG));
  // Known before it is there, or a signal between the two would leave it.
  other.copy(unfinished + 1, other.size() - 1, 1);
  unfinished[other.size()] = '\0';
  unfinished[0] = other[0];
  file_ = open(other.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file_ < 0) {
    unfinished[0] = '\0';
    fail();
  }
}

NewFile::~NewFile() {
  if (file_ < 0) return;
  close(file_);
  remove_unfinished();
}

void NewFile::fail() { throw OutputError(fmt::format("{}: {}", name_, std::strerror(errno))); }

void NewFile::write(std::string_view piece) {
  if (!write_all(file_, piece)) fail();
}

void NewFile::finish() {
  const int file = std::exchange(file_, -1);
  if (close(file) != 0 || rename(unfinished, name_.c_str()) != 0) {
    const int error = errno;
    remove_unfinished();
    errno = error;
    fail();
  }
  unfinished[0] = '\0';
}

void write_file(const std::string& name, std::string_view text, bool may_overwrite) {
  NewFile file(name, may_overwrite);
  file.write(text);
  file.finish();
}

void write_standard_output(std::string_view text) {
  if (!write_all(STDOUT_FILENO, text)) {
    throw OutputError(fmt::format("standard output: {}", std::strerror(errno)));
  }
}

}  // namespace qk::command
