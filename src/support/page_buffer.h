#ifndef SUPPORT_PAGE_BUFFER_H_
#define SUPPORT_PAGE_BUFFER_H_

#include <cstddef>
#include <string_view>

namespace qk {

/** Collects text in pages of its own, for code that must not call the allocator. */
class PageBuffer {
 public:
  constexpr PageBuffer() noexcept = default;
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;

  /** Returns false, with nothing appended, if there is no memory. */
  [[nodiscard]] bool append(std::string_view text) noexcept;

  [[nodiscard]] std::string_view text() const noexcept { return {bytes_, used_}; }

  /** Returns the pages. Otherwise they stay until the process ends. */
  void clear() noexcept;

 private:
  [[nodiscard]] bool grow(std::size_t least) noexcept;

  char* bytes_ = nullptr;
  std::size_t used_ = 0;
  std::size_t size_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_PAGE_BUFFER_H_
