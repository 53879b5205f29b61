#include "input/bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "input/input.h"

namespace qk::command {
namespace {

constexpr std::size_t kReadBytes = std::size_t{1} << 16;

[[noreturn]] void fail(const std::string& name, const std::string& why) {
  throw InputError((name == "-" ? "standard input" : name) + ": " + why);
}

/** An open file, which is closed at the end unless it is standard input. */
class File {
 public:
  explicit File(const std::string& name)
      : name_(name), file_(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (file_ < 0) fail(name_, std::strerror(errno));
    struct stat status {};
    if (fstat(file_, &status) != 0) fail(name_, std::strerror(errno));
    if (S_ISDIR(status.st_mode)) fail(name_, std::strerror(EISDIR));
    is_regular_ = S_ISREG(status.st_mode);
    if (is_regular_) size_ = static_cast<std::uint64_t>(status.st_size);
    posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (file_ != STDIN_FILENO) close(file_);
  }

  /** Reads some bytes. Returns how many; 0 at the end. */
  std::size_t read(char* bytes, std::size_t most) {
    ssize_t count = 0;
    do {
      count = ::read(file_, bytes, most);
    } while (count < 0 && errno == EINTR);
    if (count < 0) fail(name_, std::strerror(errno));
    position_ += static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
  }

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] std::uint64_t position() const { return position_; }
  [[nodiscard]] std::uint64_t size() const { return size_; }
  [[nodiscard]] int descriptor() const { return file_; }
  [[nodiscard]] bool is_regular() const { return is_regular_; }

 private:
  const std::string name_;
  const int file_;
  std::uint64_t position_ = 0;
  std::uint64_t size_ = 0;
  bool is_regular_ = false;
};

/** What all inputs have: a file, of which the first piece was read. */
class FileBytes : public Bytes {
 public:
  FileBytes(std::unique_ptr<File> file, std::vector<char> first)
      : file_(std::move(file)), read_(std::move(first)) {}

  [[nodiscard]] std::uint64_t position() const override { return file_->position(); }
  [[nodiscard]] std::uint64_t size() const override { return file_->size(); }
  [[nodiscard]] int random_access() const override { return -1; }

 protected:
  /** The next bytes of the file. Empty at the end. */
  [[nodiscard]] std::string_view next_read() {
    if (!std::exchange(has_first_, false)) {
      read_.resize(kReadBytes);
      read_.resize(file_->read(read_.data(), kReadBytes));
    }
    return {read_.data(), read_.size()};
  }

  [[nodiscard]] const File& file() const { return *file_; }

  [[noreturn]] void fail_decompressing(const std::string& why) const { fail(file_->name(), why); }

 private:
  std::unique_ptr<File> file_;
  std::vector<char> read_;
  bool has_first_ = true;
};

class PlainBytes : public FileBytes {
 public:
  using FileBytes::FileBytes;
  std::string_view next() override { return next_read(); }
  [[nodiscard]] int random_access() const override {
    return file().is_regular() ? file().descriptor() : -1;
  }
};

/** Several members one behind the other are one text, as gzip has it. */
class GzipBytes : public FileBytes {
 public:
  GzipBytes(std::unique_ptr<File> file, std::vector<char> first)
      : FileBytes(std::move(file), std::move(first)) {
    constexpr int kGzipOnly = 16;
    if (inflateInit2(&stream_, MAX_WBITS + kGzipOnly) != Z_OK) throw std::bad_alloc();
  }
  ~GzipBytes() override { inflateEnd(&stream_); }

  std::string_view next() override {
    stream_.next_out = reinterpret_cast<Bytef*>(out_.data());
    stream_.avail_out = static_cast<uInt>(out_.size());
    while (stream_.avail_out == out_.size()) {
      if (stream_.avail_in == 0 && !refill()) break;
      if (is_between_ && inflateReset(&stream_) != Z_OK) fail_decompressing("not gzip's format");
      is_between_ = false;
      const int result = inflate(&stream_, Z_NO_FLUSH);
      if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
        fail_decompressing(stream_.msg != nullptr ? stream_.msg : "damaged gzip data");
      }
      is_between_ = result == Z_STREAM_END;
    }
    return {out_.data(), out_.size() - stream_.avail_out};
  }

 private:
  bool refill() {
    const std::string_view read = next_read();
    if (read.empty()) {
      if (!is_between_) fail_decompressing("the gzip data end too early");
      return false;
    }
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(read.data()));
    stream_.avail_in = static_cast<uInt>(read.size());
    return true;
  }

  z_stream stream_ = {};
  std::vector<char> out_ = std::vector<char>(kReadBytes);
  bool is_between_ = false;  // two members, or behind the last
};

class ZstdBytes : public FileBytes {
 public:
  ZstdBytes(std::unique_ptr<File> file, std::vector<char> first)
      : FileBytes(std::move(file), std::move(first)), stream_(ZSTD_createDStream()) {
    if (stream_ == nullptr) throw std::bad_alloc();
  }
  ~ZstdBytes() override { ZSTD_freeDStream(stream_); }

  std::string_view next() override {
    ZSTD_outBuffer out = {out_.data(), out_.size(), 0};
    while (out.pos == 0) {
      if (in_.pos == in_.size && !refill()) break;
      left_ = ZSTD_decompressStream(stream_, &out, &in_);
      if (ZSTD_isError(left_) != 0) fail_decompressing(ZSTD_getErrorName(left_));
    }
    return {out_.data(), out.pos};
  }

 private:
  bool refill() {
    const std::string_view read = next_read();
    if (read.empty()) {
      if (left_ != 0) fail_decompressing("the zstd data end too early");
      return false;
    }
    in_ = {read.data(), read.size(), 0};
    return true;
  }

  ZSTD_DStream* const stream_;
  ZSTD_inBuffer in_ = {};
  std::vector<char> out_ = std::vector<char>(kReadBytes);
  std::size_t left_ = 0;  // of the frame, as the library estimates it; 0 behind its end
};

/** The first bytes, at least as many as tell a format if the input has so many. */
std::vector<char> read_first(File& file) {
  std::vector<char> first(kReadBytes);
  std::size_t count = 0;
  while (count < 4) {
    const std::size_t more = file.read(first.data() + count, first.size() - count);
    if (more == 0) break;
    count += more;
  }
  first.resize(count);
  return first;
}

}  // namespace

std::unique_ptr<Bytes> open_bytes(const std::string& name) {
  auto file = std::make_unique<File>(name);
  std::vector<char> first = read_first(*file);
  const std::string_view start(first.data(), first.size());
  if (start.starts_with("\x1F\x8B")) {
    return std::make_unique<GzipBytes>(std::move(file), std::move(first));
  }
  if (start.starts_with("\x28\xB5\x2F\xFD")) {
    return std::make_unique<ZstdBytes>(std::move(file), std::move(first));
  }
  return std::make_unique<PlainBytes>(std::move(file), std::move(first));
}

}  // namespace qk::command
