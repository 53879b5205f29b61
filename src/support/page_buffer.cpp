#include "support/page_buffer.h"

#include <sys/mman.h>

#include <algorithm>

namespace qk {

bool PageBuffer::append(std::string_view text) noexcept {
  if (text.size() > size_ - used_ && !grow(used_ + text.size())) return false;
  // Not memcpy(), because an empty text can have a null address, as the buffer has at first.
  used_ += text.copy(bytes_ + used_, text.size());
  return true;
}

bool PageBuffer::grow(std::size_t least) noexcept {
  constexpr std::size_t kFirstSize = 65536;
  const std::size_t size = std::max({least, 2 * size_, kFirstSize});
  void* const pages = bytes_ == nullptr ? mmap(nullptr, size, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                                        : mremap(bytes_, size_, size, MREMAP_MAYMOVE);
  if (pages == MAP_FAILED) return false;
  bytes_ = static_cast<char*>(pages);
  size_ = size;
  return true;
}

void PageBuffer::clear() noexcept {
  if (bytes_ != nullptr) munmap(bytes_, size_);
  bytes_ = nullptr;
  used_ = 0;
  size_ = 0;
}

}  // namespace qk
