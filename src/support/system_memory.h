#ifndef SUPPORT_SYSTEM_MEMORY_H_
#define SUPPORT_SYSTEM_MEMORY_H_

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

#include "support/apart_memory.h"

/**
 * The only direct calls of the system's allocator; check_seams.py enforces that. They separate the
 * user's memory from the library's own: what is laid around or written into the user's memory must
 * never touch the library's.
 *
 * Sizes that no object can have are refused here, with ENOMEM: the C library refuses them too, but
 * a sanitizer's allocator ends the program.
 */
namespace qk {

[[nodiscard]] inline void* out_of_memory() {
  errno = ENOMEM;
  return nullptr;
}

/** Saturates to SIZE_MAX on overflow, which every allocator refuses. */
[[nodiscard]] inline std::size_t product(std::size_t num, std::size_t size) {
  std::size_t bytes = 0;
  return __builtin_mul_overflow(num, size, &bytes) ? SIZE_MAX : bytes;
}

/** Saturates to SIZE_MAX on overflow, which every allocator refuses. */
[[nodiscard]] inline std::size_t sum(std::size_t left, std::size_t right) {
  std::size_t bytes = 0;
  return __builtin_add_overflow(left, right, &bytes) ? SIZE_MAX : bytes;
}

/** Memory that the program receives, or returns, by its address. */
namespace user_memory {

[[nodiscard]] inline void* allocate(std::size_t size) {
  return size > PTRDIFF_MAX ? out_of_memory() : std::malloc(size);
}

[[nodiscard]] inline void* allocate_zeroed(std::size_t num, std::size_t size) {
  return product(num, size) > PTRDIFF_MAX ? out_of_memory() : std::calloc(num, size);
}

/**
 * A `size` of 0 frees `memory` and returns null without an error; without memory to free, it
 * allocates.
 */
[[nodiscard]] inline void* resize(void* memory, std::size_t size) {
  if (size > PTRDIFF_MAX) return out_of_memory();
  if (size == 0) errno = 0;
  return std::realloc(memory, size);
}

[[nodiscard]] inline void* copy_of(const char* text) { return ::strdup(text); }

/** Null does nothing. */
inline void release(void* memory) { std::free(memory); }

}  // namespace user_memory

/** Memory of the library itself, and the blocks whose pieces it hands out. */
namespace own_memory {

[[nodiscard]] inline void* allocate(std::size_t size) {
  return size > PTRDIFF_MAX ? out_of_memory() : std::malloc(size);
}

/** For tables. */
[[nodiscard]] inline void* allocate_zeroed(std::size_t num, std::size_t size) {
  if (product(num, size) > PTRDIFF_MAX) return out_of_memory();
  void* const memory = apart::is_used() ? apart::allocate(num * size) : nullptr;
  return memory != nullptr ? memory : std::calloc(num, size);
}

/** `size` is above 0. On failure returns null and leaves the memory as it was. */
[[nodiscard]] inline void* resize(void* memory, std::size_t size) {
  if (size > PTRDIFF_MAX) return out_of_memory();
  if (apart::is_used()) {
    if (apart::has(memory)) return apart::resize(memory, size);
    void* const first = memory == nullptr ? apart::allocate(size) : nullptr;
    if (first != nullptr) return first;
  }
  return std::realloc(memory, size);
}

/** Null does nothing. */
inline void release(void* memory) {
  if (apart::is_used() && apart::has(memory)) return apart::release(memory);
  std::free(memory);
}

/** An object for destroy(); null if there is no memory. */
template <class Object>
[[nodiscard]] Object* make() {
  return new (std::nothrow) Object;
}

/** An object at the start of memory of allocate_zeroed(), for release(): it has no destructor. */
template <class Object, class... Arguments>
[[nodiscard]] Object* make_in(void* memory, Arguments... arguments) {
  static_assert(std::is_trivially_destructible_v<Object>);
  return new (memory) Object(arguments...);
}

/** Null does nothing. */
template <class Object>
void destroy(Object* object) {
  delete object;
}

/** std::construct_at(), whose header <memory> takes long to compile. */
template <class Object>
void construct_at(Object* place) {
  new (place) Object();
}

/** The deleter of a std::unique_ptr for memory of allocate() or allocate_zeroed(). */
struct Release {
  void operator()(void* memory) const { release(memory); }
};

/** The allocator of a standard container that must not call the program's operator new. */
template <class T>
struct Allocator {
  using value_type = T;

  Allocator() = default;
  template <class Other>
  Allocator(const Allocator<Other>& /*other*/) {}

  [[nodiscard]] T* allocate(std::size_t num) {
    void* memory = own_memory::allocate(product(num, sizeof(T)));
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }
  void deallocate(T* memory, std::size_t /*num*/) { release(memory); }

  [[nodiscard]] bool operator==(const Allocator& /*other*/) const { return true; }
};

}  // namespace own_memory
}  // namespace qk

#endif  // SUPPORT_SYSTEM_MEMORY_H_
