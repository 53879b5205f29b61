#ifndef QKMEM_ALLOC_SYSTEM_MEMORY_H_
#define QKMEM_ALLOC_SYSTEM_MEMORY_H_

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

/**
 * The system's allocator, with requests that no object can have refused here: the C library does
 * the same, but a sanitizer's allocator ends the program.
 */
namespace qk::mem {

[[nodiscard]] inline void* out_of_memory() {
  errno = ENOMEM;
  return nullptr;
}

/** A product that doesn't fit is a size that nobody serves. */
[[nodiscard]] inline std::size_t product(std::size_t num, std::size_t size) {
  std::size_t bytes = 0;
  return __builtin_mul_overflow(num, size, &bytes) ? SIZE_MAX : bytes;
}

[[nodiscard]] inline void* system_malloc(std::size_t size) {
  return size > PTRDIFF_MAX ? out_of_memory() : std::malloc(size);
}

[[nodiscard]] inline void* system_calloc(std::size_t num, std::size_t size) {
  return product(num, size) > PTRDIFF_MAX ? out_of_memory() : std::calloc(num, size);
}

/** A `size` of 0 frees the memory and answers null without an error. */
[[nodiscard]] inline void* system_realloc(void* ptr, std::size_t size) {
  if (size > PTRDIFF_MAX) return out_of_memory();
  if (size == 0) errno = 0;
  return std::realloc(ptr, size);
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_SYSTEM_MEMORY_H_
