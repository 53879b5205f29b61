#ifndef QKMEM_PROFILE_FILLING_H_
#define QKMEM_PROFILE_FILLING_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "profile/pool.h"
#include "profile/state.h"

/** Contents of new memory on watched handles, see fills_new_memory. */
namespace qk::mem::profile {

/** Each byte of a word; no address on any 64-bit Linux. */
inline constexpr int kFilling = 0xA5;

[[nodiscard, gnu::always_inline]] inline bool fills_new() {
  return !qk::is_equal(fills_new_memory, 0);
}

/** Fills what memory has got beyond `old_bytes`. Null and memory that has shrunk stay as they are. */
[[gnu::always_inline]] inline void fill_new(void* memory, std::uint64_t old_bytes,
                                            std::uint64_t bytes) {
  if (fills_new()) [[unlikely]] {
    if (memory == nullptr || bytes <= old_bytes) return;
    std::memset(static_cast<char*>(memory) + old_bytes, kFilling, bytes - old_bytes);
  }
}

/** The same for new memory of a handle, if it is watched. Returns the memory. */
inline void* filled(const qk_mem_handle& handle, void* memory, std::uint64_t bytes) {
  if (is_watched(handle)) fill_new(memory, 0, bytes);
  return memory;
}

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_FILLING_H_
