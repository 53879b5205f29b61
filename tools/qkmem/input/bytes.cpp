#include "input/bytes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "input/input.h"

namespace qk::command {
namespace {

[[noreturn]] void fail(const std::string& name, const std::string& why) {
  throw InputError((name == "-" ? "standard input" : name) + ": " + why);
}

/** An open file, which is closed at the end unless it is standard input. */
class File : public Bytes {
 public:
  explicit File(const std::string& name)
      : name_(name), file_(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (file_ < 0) fail(name_, std::strerror(errno));
    struct stat status {};
    if (fstat(file_, &status) != 0) fail(name_, std::strerror(errno));
    if (S_ISDIR(status.st_mode)) fail(name_, std::strerror(EISDIR));
    is_regular_ = S_ISREG(status.st_mode);
    if (is_regular_) {
      size_ = static_cast<std::uint64_t>(status.st_size);
    } else {
      interrupt_ = eventfd(0, EFD_CLOEXEC);
    }
    posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  ~File() override {
    if (file_ != STDIN_FILENO) close(file_);
    if (interrupt_ >= 0) close(interrupt_);
  }

  void interrupt() override {
    if (interrupt_ >= 0) eventfd_write(interrupt_, 1);
  }
  [[nodiscard]] std::uint64_t position() const override { return position_; }
  [[nodiscard]] std::uint64_t size() const override { return size_; }
  [[nodiscard]] int random_access() const override { return is_regular_ ? file_ : -1; }
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  [[nodiscard]] std::size_t read_more(std::span<char> to) override {
    if (interrupt_ >= 0 && !wait()) return 0;
    ssize_t count = 0;
    do {
      count = ::read(file_, to.data(), to.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0) fail(name_, std::strerror(errno));
    position_ += static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
  }

  /** Waits for bytes, or their end. Returns false if it was interrupted. */
  [[nodiscard]] bool wait() const {
    std::array<pollfd, 2> waits_for = {{{file_, POLLIN, 0}, {interrupt_, POLLIN, 0}}};
    while (poll(waits_for.data(), waits_for.size(), -1) < 0) {
      if (errno != EINTR) fail(name_, std::strerror(errno));
    }
    return waits_for[1].revents == 0;
  }

  const std::string name_;
  const int file_;
  int interrupt_ = -1;  // of what can wait for long
  std::uint64_t position_ = 0;
  std::uint64_t size_ = 0;
  bool is_regular_ = false;
};

/** A file that is compressed. Its position and size are those of what is. */
class Compressed : public Bytes {
 public:
  explicit Compressed(std::unique_ptr<File> file) : file_(std::move(file)) {}

  void interrupt() override { file_->interrupt(); }
  [[nodiscard]] std::uint64_t position() const override { return file_->position(); }
  [[nodiscard]] std::uint64_t size() const override { return file_->size(); }
  [[nodiscard]] int random_access() const override { return -1; }

 protected:
  /** The next bytes of the file, valid until the next call. Empty at the end. */
  [[nodiscard]] std::span<char> next_piece() {
    return std::span(piece_).first(file_->read(piece_));
  }

  [[noreturn]] void fail_decompressing(const std::string& why) const { fail(file_->name(), why); }

 private:
  std::unique_ptr<File> file_;
  std::vector<char> piece_ = std::vector<char>(kPieceBytes);
};

/** Several members one behind the other are one text, as gzip has it. */
class GzipBytes : public Compressed {
 public:
  explicit GzipBytes(std::unique_ptr<File> file) : Compressed(std::move(file)) {
    constexpr int kGzipOnly = 16;
    if (inflateInit2(&stream_, MAX_WBITS + kGzipOnly) != Z_OK) throw std::bad_alloc();
  }
  ~GzipBytes() override { inflateEnd(&stream_); }

  std::size_t read_more(std::span<char> to) override {
    stream_.next_out = reinterpret_cast<Bytef*>(to.data());
    stream_.avail_out = static_cast<uInt>(to.size());
    while (stream_.avail_out == to.size()) {
      if (stream_.avail_in == 0 && !refill()) break;
      if (is_between_ && inflateReset(&stream_) != Z_OK) fail_decompressing("not gzip's format");
      is_between_ = false;
      const int result = inflate(&stream_, Z_NO_FLUSH);
      if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
        fail_decompressing(stream_.msg != nullptr ? stream_.msg : "damaged gzip data");
      }
      is_between_ = result == Z_STREAM_END;
    }
    return to.size() - stream_.avail_out;
  }

 private:
  bool refill() {
    const std::span<char> piece = next_piece();
    if (piece.empty()) {
      if (!is_between_) fail_decompressing("the gzip data end too early");
      return false;
    }
    stream_.next_in = reinterpret_cast<Bytef*>(piece.data());
    stream_.avail_in = static_cast<uInt>(piece.size());
    return true;
  }

  z_stream stream_ = {};
  bool is_between_ = false;  // two members, or behind the last
};

class ZstdBytes : public Compressed {
 public:
  explicit ZstdBytes(std::unique_ptr<File> file)
      : Compressed(std::move(file)), stream_(ZSTD_createDStream()) {
    if (stream_ == nullptr) throw std::bad_alloc();
  }
  ~ZstdBytes() override { ZSTD_freeDStream(stream_); }

  std::size_t read_more(std::span<char> to) override {
    ZSTD_outBuffer out = {to.data(), to.size(), 0};
    while (out.pos == 0) {
      if (in_.pos == in_.size && !refill()) break;
      left_ = ZSTD_decompressStream(stream_, &out, &in_);
      if (ZSTD_isError(left_) != 0) fail_decompressing(ZSTD_getErrorName(left_));
    }
    return out.pos;
  }

 private:
  bool refill() {
    const std::span<char> piece = next_piece();
    if (piece.empty()) {
      if (left_ != 0) fail_decompressing("the zstd data end too early");
      return false;
    }
    in_ = {piece.data(), piece.size(), 0};
    return true;
  }

  ZSTD_DStream* const stream_;
  ZSTD_inBuffer in_ = {};
  std::size_t left_ = 0;  // of the frame, as the library estimates it; 0 behind its end
};

}  // namespace

std::string_view Bytes::start() {
  while (start_count_ < start_.size()) {
    const std::size_t more = read_more(std::span(start_).subspan(start_count_));
    if (more == 0) break;
    start_count_ += more;
  }
  return {start_.data(), start_count_};
}

std::size_t Bytes::read(std::span<char> to) {
  if (start_taken_ == start_count_) return read_more(to);
  const std::size_t count = std::min(start_count_ - start_taken_, to.size());
  std::memcpy(to.data(), start_.data() + start_taken_, count);
  start_taken_ += count;
  return count;
}

std::unique_ptr<Bytes> open_bytes(const std::string& name) {
  auto file = std::make_unique<File>(name);
  if (file->start().starts_with("\x1F\x8B")) return std::make_unique<GzipBytes>(std::move(file));
  if (file->start().starts_with("\x28\xB5\x2F\xFD")) {
    return std::make_unique<ZstdBytes>(std::move(file));
  }
  return file;
}

}  // namespace qk::command
