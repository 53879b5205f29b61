#ifndef SUPPORT_THREAD_POINTER_H_
#define SUPPORT_THREAD_POINTER_H_

#include <cstdint>

namespace qk {

/** The address that tells the calling thread from others, without a call. */
[[nodiscard]] inline std::uintptr_t thread_pointer() noexcept {
#if defined(__x86_64__)
  // clang 13 doesn't know the built-in function there.
  std::uintptr_t pointer = 0;
  asm("mov %%fs:0, %0" : "=r"(pointer));
  return pointer;
#else
  return reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
#endif
}

}  // namespace qk

#endif  // SUPPORT_THREAD_POINTER_H_
