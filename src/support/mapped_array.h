#ifndef SUPPORT_MAPPED_ARRAY_H_
#define SUPPORT_MAPPED_ARRAY_H_

#include <sys/mman.h>

#include <cstddef>
#include <span>
#include <type_traits>

namespace qk {

/**
 * An array in pages of its own, for code that must not call the allocator: large pages if the system
 * has them, since searches jump about in such arrays.
 */
template <class T>
class MappedArray {
 public:
  /** Makes room for `capacity` elements. Without memory it has room for none. */
  explicit MappedArray(std::size_t capacity) noexcept : bytes_(capacity * sizeof(T)) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (bytes_ == 0) return;
    void* const pages =
        mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return;
    if (bytes_ >= kLargePage) madvise(pages, bytes_, MADV_HUGEPAGE);
    elements_ = static_cast<T*>(pages);
    capacity_ = capacity;
  }
  MappedArray(const MappedArray&) = delete;
  MappedArray& operator=(const MappedArray&) = delete;
  ~MappedArray() {
    if (elements_ != nullptr) munmap(elements_, bytes_);
  }

  /** Returns false if there is no room. */
  bool push_back(const T& element) noexcept {
    if (size_ == capacity_) return false;
    elements_[size_++] = element;
    return true;
  }

  void shrink(std::size_t size) noexcept { size_ = size; }

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }
  [[nodiscard]] T* begin() noexcept { return elements_; }
  [[nodiscard]] T* end() noexcept { return elements_ + size_; }
  [[nodiscard]] const T* begin() const noexcept { return elements_; }
  [[nodiscard]] const T* end() const noexcept { return elements_ + size_; }
  [[nodiscard]] T& operator[](std::size_t index) noexcept { return elements_[index]; }
  [[nodiscard]] const T& operator[](std::size_t index) const noexcept { return elements_[index]; }

 private:
  static constexpr std::size_t kLargePage = std::size_t{2} << 20;

  T* elements_ = nullptr;
  std::size_t bytes_;
  std::size_t capacity_ = 0;
  std::size_t size_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_MAPPED_ARRAY_H_
