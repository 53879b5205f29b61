#include "recording/output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "formats/recording.h"
#include "support/fifo.h"
#include "support/own_message.h"

namespace qk::mem::recording {
namespace {

/** A write beyond the limit of files' sizes would raise SIGXFSZ. */
bool exceeds_limit(std::uint64_t end) {
  rlimit limit = {};
  return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
         end > limit.rlim_cur;
}

int write_at(int descriptor, std::string_view text, std::uint64_t offset) {
  while (!text.empty()) {
    const ssize_t written =
        ::pwrite(descriptor, text.data(), text.size(), static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return EIO;
    text.remove_prefix(static_cast<std::size_t>(written));
    offset += static_cast<std::uint64_t>(written);
  }
  return 0;
}

/** Keeps a reader that has gone from ending the program by SIGPIPE. */
int write_to_reader(int descriptor, std::string_view text) {
  sigset_t pipe_signal;
  sigset_t pending;
  sigset_t before;
  sigemptyset(&pipe_signal);
  sigaddset(&pipe_signal, SIGPIPE);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
  const int error = qk::write_text(descriptor, text);
  if (error == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
    const timespec at_once = {};
    while (sigtimedwait(&pipe_signal, nullptr, &at_once) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error;
}

int open_named(const char* name, int flags) {
  constexpr mode_t kForAll = 0666;
  return qk::is_fifo(name) ? qk::open_fifo(name)
                           : ::open(name, flags | O_RDWR | O_CLOEXEC, kForAll);
}

/** Devices can be for writing only. */
int open_for_writing(const char* name, int flags) {
  const int descriptor = open_named(name, flags);
  if (descriptor >= 0 || errno != EACCES) return descriptor;
  return ::open(name, O_WRONLY | O_CLOEXEC);
}

}  // namespace

bool NamedFile::is_it(int descriptor) const {
  struct stat status = {};
  return descriptor >= 0 && ::fstat(descriptor, &status) == 0 && status.st_dev == device_ &&
         status.st_ino == inode_;
}

int NamedFile::keep_path(std::string_view name) {
  folder_ = 0;
  if (!name.starts_with('/')) {
    if (::getcwd(path_, sizeof path_ - 1) == nullptr) return errno;
    folder_ = std::strlen(path_);
    path_[folder_++] = '/';
  }
  if (folder_ + name.size() >= sizeof path_) return ENAMETOOLONG;
  path_[folder_ + name.copy(path_ + folder_, name.size())] = '\0';
  return 0;
}

int NamedFile::open(std::string_view name) {
  const int error = keep_path(name);
  if (error != 0) return error;
  descriptor_ = open_for_writing(path_, O_CREAT | O_TRUNC);
  struct stat status = {};
  if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0) return errno;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  is_regular_ = S_ISREG(status.st_mode);
  return 0;
}

void NamedFile::remove() {
  if (descriptor() >= 0) ::unlink(path_);
}

int NamedFile::descriptor() {
  if (is_it(descriptor_)) return descriptor_;
  descriptor_ = -1;  // another file's by now
  const int again = open_for_writing(path_, 0);
  if (again < 0) return -1;
  if (!is_it(again)) {
    ::close(again);
    errno = ESTALE;
    return -1;
  }
  descriptor_ = again;
  return again;
}

void NamedFile::close() {
  if (is_it(descriptor_)) ::close(descriptor_);
  descriptor_ = -1;
}

int Output::open(std::string_view name, std::uint64_t limit) {
  limit_ = limit;
  end_ = 0;
  gone_ = 0;
  looked_at_ = 0;
  header_of_hole_ = {};
  dropped_up_to_ = 0;
  const int error = file_.open(name);
  if (error != 0 || !has_tail()) return error;
  char tail[PATH_MAX];
  constexpr std::string_view kEnding = ".tail";
  if (name.size() + kEnding.size() >= sizeof tail) return ENAMETOOLONG;
  name.copy(tail, name.size());
  kEnding.copy(tail + name.size(), kEnding.size());
  return tail_.open({tail, name.size() + kEnding.size()});
}

int Output::append(std::string_view chunk, ChunkKind kind) {
  const int descriptor = file_.descriptor();
  if (descriptor < 0) return errno;
  if (!file_.is_regular()) return write_to_reader(descriptor, chunk);
  if (exceeds_limit(end_ + chunk.size())) return EFBIG;
  const int no_room = kind == ChunkKind::kEvents ? make_room(descriptor, chunk.size()) : 0;
  if (no_room != 0) return no_room;
  const int error = write_at(descriptor, chunk, end_);
  end_ += chunk.size();
  return error;
}

/** Some at a time, since each time all that is live has to be written anew. */
int Output::make_room(int descriptor, std::uint64_t bytes) {
  if (limit_ == 0 || end_ - gone_ + bytes <= limit_) return 0;
  const std::uint64_t wanted = limit_ - limit_ / 8;
  int error = 0;
  while (error == 0 && end_ - gone_ + bytes > wanted && looked_at_ < end_) {
    error = drop_next(descriptor);
  }
  return error;
}

/** Drops the next chunk, or passes over it. */
int Output::drop_next(int descriptor) {
  char bytes[kHeaderBytes];
  const ssize_t length = ::pread(descriptor, bytes, sizeof bytes, static_cast<off_t>(looked_at_));
  if (length != sizeof bytes) return length < 0 ? errno : EIO;
  const ChunkHeader header = decode_header(bytes);
  if (header.bytes < kHeaderBytes || header.bytes > kChunkBytes) return EIO;
  const bool can_go = header.kind == ChunkKind::kEvents || header.kind == ChunkKind::kLevels;
  const int error = can_go ? drop_chunk(descriptor, header) : 0;
  if (!can_go) header_of_hole_ = {};
  looked_at_ += header.bytes;
  return error;
}

/** Chunks side by side get one header, since each one that stays needs a page. */
int Output::drop_chunk(int descriptor, const ChunkHeader& header) {
  ChunkHeader& hole = header_of_hole_;
  constexpr std::uint32_t kLongest = std::uint32_t{1} << 31;
  if (hole.bytes == 0 || hole.bytes >= kLongest) {
    hole_ = looked_at_;
    hole = {};
    hole.kind = ChunkKind::kEvents;
    hole.flags = kDropped;
    hole.first_number = header.first_number;
    hole.begin = header.begin;
  }
  hole.bytes += header.bytes;
  hole.events += header.events;
  hole.highest_number = std::max(hole.highest_number, header.highest_number);
  hole.end = header.end;
  dropped_up_to_ = std::max(dropped_up_to_, header.highest_number);
  gone_ += header.bytes;
  char bytes[kHeaderBytes];
  encode_header(hole, bytes);
  seal(bytes, kHeaderBytes);
  const int error = write_at(descriptor, {bytes, sizeof bytes}, hole_);
  if (error != 0) return error;
  const int failed = ::fallocate(descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                                 static_cast<off_t>(hole_ + kHeaderBytes),
                                 static_cast<off_t>(hole.bytes - kHeaderBytes));
  return failed == 0 ? 0 : errno;
}

int Output::map_slot(void* memory, std::uint32_t slot) {
  if (!has_tail()) return 0;
  const std::uint64_t offset = std::uint64_t{slot} * kChunkBytes;
  if (exceeds_limit(offset + kChunkBytes)) return EFBIG;
  const int descriptor = tail_.descriptor();
  if (descriptor < 0) return errno;
  // Without its blocks on the disk, a write to the mapping could raise SIGBUS.
  int error = 0;
  do {
    error = ::posix_fallocate(descriptor, static_cast<off_t>(offset), kChunkBytes);
  } while (error == EINTR);
  if (error != 0) return error;
  void* const mapped = ::mmap(memory, kChunkBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED,
                              descriptor, static_cast<off_t>(offset));
  return mapped == MAP_FAILED ? errno : 0;
}

void Output::close() {
  file_.close();
  tail_.close();
}

void Output::remove_tail() {
  if (has_tail()) tail_.remove();
}

}  // namespace qk::mem::recording
