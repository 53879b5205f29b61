/** Standard containers whose memory is on a handle. See qkmem.hpp for the conventions. */
#ifndef QKMEM_CONTAINERS_HPP_
#define QKMEM_CONTAINERS_HPP_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory_resource>
#include <new>
#include <type_traits>

#include "qkmem/handle.hpp"

#pragma GCC visibility push(default)

namespace qk {

namespace detail {

inline constexpr std::size_t kAlignment = QK_MEM_ALIGNMENT;

/** Throws or, if there are no exceptions, ends the program. */
template <class Exception>
[[noreturn]] void fail() {
#if defined(__cpp_exceptions)
  throw Exception();
#else
  std::abort();
#endif
}

[[nodiscard]] inline void* allocate_plain(const On& on, std::size_t size, std::size_t alignment) {
  if (!is_current(on, QK_MEM_CALL_MALLOC)) fail<std::bad_alloc>();
  void* const memory = qk_mem_imalloc(on.number(), size == 0 ? 1 : size,
                                      static_cast<int>(alignment), on.file(), on.line());
  if (memory == nullptr) fail<std::bad_alloc>();
  return memory;
}

/** Aligns inside a larger allocation, and stores its address in front of the aligned one. */
[[nodiscard]] inline void* allocate_aligned(const On& on, std::size_t size, std::size_t alignment) {
  if (size > std::numeric_limits<std::size_t>::max() - alignment) fail<std::bad_alloc>();
  void* const base = allocate_plain(on, size + alignment, kAlignment);
  const auto offset = alignment - reinterpret_cast<std::uintptr_t>(base) % alignment;
  char* const memory = static_cast<char*>(base) + offset;
  std::memcpy(memory - sizeof base, &base, sizeof base);
  return memory;
}

[[nodiscard]] inline void* base_of_aligned(const void* memory) noexcept {
  void* base = nullptr;
  std::memcpy(&base, static_cast<const char*>(memory) - sizeof base, sizeof base);
  return base;
}

[[nodiscard]] inline void* allocate(const On& on, std::size_t size, std::size_t alignment) {
  return alignment <= kAlignment ? allocate_plain(on, size, alignment)
                                 : allocate_aligned(on, size, alignment);
}

/** Does nothing if the handle doesn't free singly or doesn't exist: all is released together. */
inline void deallocate(const On& on, void* memory, std::size_t alignment) noexcept {
  if (!is_current(on, QK_MEM_CALL_FREE)) return;
  if (qk_mem_frees_singly(on.number(), on.file(), on.line()) == 0) return;
  void* const base = alignment <= kAlignment ? memory : base_of_aligned(memory);
  qk_mem_ifree(on.number(), base, on.file(), on.line());
}

}  // namespace detail

/**
 * Allocates the memory of std::pmr containers on a handle. On a block-managed handle without
 * BLOCKFREE it is an arena, whose memory is released when the handle is cleared or deleted.
 *
 * Records and log lines show the location where the resource was created. An alignment above 16
 * takes that many bytes more, which the record includes. A size of 0 takes 1 byte. Two resources
 * are equal if they have the same handle.
 *
 * The resource must live longer than the containers that use it, and the handle longer than both.
 * The elements of a container that outlives its handle are gone. If the resource was made from a
 * qk::Handle, the container then frees nothing and gets no memory (std::bad_alloc), and each try
 * logs an error; made from a number, it uses the handle that has the number by then.
 *
 * It can be copied, but not assigned.
 */
class memory_resource : public std::pmr::memory_resource {
 public:
  explicit memory_resource(On on) noexcept : on_(on) {}

  /** A handle that ends with the expression can't serve containers. */
  explicit memory_resource(const Handle&& temporary) = delete;

  memory_resource(const memory_resource&) = default;

  /** Containers that live on the memory would return it to the wrong handle. */
  memory_resource& operator=(const memory_resource&) = delete;

  /** Returns the number of the handle. */
  [[nodiscard]] int handle() const noexcept { return on_.number(); }

 private:
  void* do_allocate(std::size_t size, std::size_t alignment) override {
    return detail::allocate(on_, size, alignment);
  }

  void do_deallocate(void* memory, std::size_t /*size*/, std::size_t alignment) override {
    detail::deallocate(on_, memory, alignment);
  }

  [[nodiscard]] bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
#if defined(__cpp_rtti)
    const auto* const same = dynamic_cast<const memory_resource*>(&other);
    return same != nullptr && detail::is_same_handle(same->on_, on_);
#else
    return this == &other;
#endif
  }

  On on_;
};

/**
 * An allocator for standard containers that aren't std::pmr ones. Memory, locations, alignments and
 * deleted handles are as with qk::memory_resource.
 *
 * A container that is copy-assigned keeps its handle. A container that is copied, moved,
 * move-assigned or swapped has the handle that its elements come from.
 *
 * An allocator that is created from nothing has the data handle. Containers create such allocators
 * themselves, for the elements that resize() adds to a container of containers, for instance, and
 * std::basic_string does so for the result of substr(). So `text = text.substr(1)` moves `text` to
 * the data handle; `text.erase(0, 1)` doesn't.
 */
template <class T>
class allocator {
 public:
  using value_type = T;
  using propagate_on_container_copy_assignment = std::false_type;
  using propagate_on_container_move_assignment = std::true_type;
  using propagate_on_container_swap = std::true_type;
  using is_always_equal = std::false_type;

  /** For QK_MEM_DATA_HANDLE. If a container creates it, it has a location in the container. */
  allocator(Location where = Location::current()) noexcept : on_(QK_MEM_DATA_HANDLE, where) {}

  /** Implicit, to allow `std::vector<int, qk::allocator<int>> v(pool)`. */
  allocator(const Handle& handle, Location where = Location::current()) noexcept
      : on_(handle, where) {}

  /** A handle that ends with the expression can't serve a container. */
  allocator(const Handle&& temporary) = delete;
  allocator(const Handle&& temporary, Location where) = delete;

  /** For the number of a handle. Explicit, since a container takes a number for its size. */
  explicit allocator(On on) noexcept : on_(on) {}

  /** The same handle and location for elements of another type. */
  template <class U>
  allocator(const allocator<U>& other) noexcept : on_(other.on()) {}

  /** Returns memory for `n` elements. On overflow throws std::bad_array_new_length. */
  [[nodiscard]] T* allocate(std::size_t n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
      detail::fail<std::bad_array_new_length>();
    }
    return static_cast<T*>(detail::allocate(on_, n * sizeof(T), alignof(T)));
  }

  void deallocate(T* elements, std::size_t /*n*/) noexcept {
    detail::deallocate(on_, elements, alignof(T));
  }

  /** Returns the number of the handle. */
  [[nodiscard]] int handle() const noexcept { return on_.number(); }

  [[nodiscard]] const On& on() const noexcept { return on_; }

 private:
  On on_;
};

/** Equal if memory of one can be deallocated through the other. */
template <class T, class U>
[[nodiscard]] bool operator==(const allocator<T>& one, const allocator<U>& other) noexcept {
  return detail::is_same_handle(one.on(), other.on());
}

template <class T, class U>
[[nodiscard]] bool operator!=(const allocator<T>& one, const allocator<U>& other) noexcept {
  return !(one == other);
}

}  // namespace qk

#pragma GCC visibility pop

#endif  // QKMEM_CONTAINERS_HPP_
