/** Growable arrays with elements of a type. See qkmem.hpp for the conventions. */
#ifndef QKMEM_ARRAYS_HPP_
#define QKMEM_ARRAYS_HPP_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "qkmem/qkmem.h"

#pragma GCC visibility push(default)

namespace qk {

namespace detail {

/** Fails to compile if T can't be moved as bytes and begin as zeroes. */
template <class T>
constexpr void check_element() noexcept {
  static_assert(std::is_trivially_copyable_v<T>,
                "elements of a growable array must be trivially copyable: it moves their bytes");
  static_assert(!std::is_const_v<T> && !std::is_volatile_v<T>,
                "elements of a growable array can't be const or volatile");
  static_assert(alignof(T) <= QK_MEM_ALIGNMENT, "a growable array aligns its elements to 16 bytes");
}

/** The address without its type, which may be const until check_element() refuses it. */
template <class T>
[[nodiscard]] void* untyped(T* elements) noexcept {
  return const_cast<std::remove_cv_t<T>*>(elements);
}

}  // namespace detail

}  // namespace qk

/**
 * As the function for `void**`, so that qk_mem_marralloc() takes the address of a typed pointer:
 * `int* numbers = nullptr; qk_mem_marralloc(hid, &numbers, sizeof *numbers, 10)`.
 */
template <class T>
std::int64_t qk_mem_imarralloc(int hid, T** address, std::size_t element_size,
                               std::size_t block_factor, const char* file, int line) {
  qk::detail::check_element<T>();
  void* elements = address == nullptr ? nullptr : qk::detail::untyped(*address);
  void** const untyped_address = address == nullptr ? nullptr : &elements;
  const std::int64_t index =
      qk_mem_imarralloc(hid, untyped_address, element_size, block_factor, file, line);
  if (address != nullptr) *address = static_cast<T*>(elements);
  return index;
}

/** The same for qk_mem_arrfree(). */
template <class T>
void qk_mem_iarrfree(int hid, T** address, const char* file, int line) {
  qk::detail::check_element<T>();
  void* elements = address == nullptr ? nullptr : qk::detail::untyped(*address);
  void** const untyped_address = address == nullptr ? nullptr : &elements;
  qk_mem_iarrfree(hid, untyped_address, file, line);
  if (address != nullptr) *address = static_cast<T*>(elements);
}

#pragma GCC visibility pop

#endif  // QKMEM_ARRAYS_HPP_
