#include "input/storage.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "input/input.h"

namespace qk::command {
namespace {

[[noreturn]] void fail(std::string_view what) {
  throw InputError(fmt::format("{}: {}", what, std::strerror(errno)));
}

/** A file that is gone once it is closed. */
int open_temporary() {
  const char* folder = std::getenv("TMPDIR");
  if (folder == nullptr || *folder == '\0') folder = "/tmp";
  std::string name = std::string(folder) + "/qkmem.XXXXXX";
  const int file = mkostemp(name.data(), O_CLOEXEC);
  if (file < 0) fail("a temporary file in " + std::string(folder));
  unlink(name.c_str());
  fmt::print(stderr, "qkmem: copying the recording to a temporary file in {} first\n", folder);
  return file;
}

}  // namespace

Storage::Storage(std::unique_ptr<Bytes> bytes)
    : bytes_(std::move(bytes)), file_(bytes_->random_access()), size_(bytes_->size()) {
  if (file_ >= 0) return;
  file_ = own_file_ = open_temporary();
  size_ = 0;
  copy();
}

Storage::~Storage() {
  if (mapping_ != nullptr) munmap(mapping_, size_);
  if (own_file_ >= 0) close(own_file_);
}

void Storage::copy() {
  std::vector<char> buffer(kPieceBytes);
  while (const std::size_t read = bytes_->read(buffer)) {
    for (std::string_view piece(buffer.data(), read); !piece.empty();) {
      const ssize_t count = write(own_file_, piece.data(), piece.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) fail("the temporary file");
      piece.remove_prefix(static_cast<std::size_t>(count));
      size_ += static_cast<std::uint64_t>(count);
    }
  }
}

std::size_t Storage::read(std::uint64_t at, char* to, std::size_t most) const {
  std::size_t count = 0;
  while (count < most) {
    const ssize_t more = pread(file_, to + count, most - count, static_cast<off_t>(at + count));
    if (more < 0 && errno == EINTR) continue;
    if (more < 0) fail("the recording");
    if (more == 0) break;
    count += static_cast<std::size_t>(more);
  }
  return count;
}

std::string_view Storage::mapped() {
  if (size_ == 0) return {};
  if (mapping_ == nullptr) {
    void* const mapping = mmap(nullptr, size_, PROT_READ, MAP_SHARED, file_, 0);
    if (mapping == MAP_FAILED) fail("the recording");
    mapping_ = mapping;
  }
  return {static_cast<const char*>(mapping_), size_};
}

std::string whole_file(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace qk::command
