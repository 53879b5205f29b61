#ifndef SUPPORT_CAREFUL_READING_H_
#define SUPPORT_CAREFUL_READING_H_

#include <cstddef>
#include <cstdint>

namespace qk {

/**
 * Copies memory of the process that another thread may be unmapping. Returns false if it isn't
 * there, or if the system doesn't do that. errno is preserved. Any thread; signal handlers too.
 */
[[nodiscard]] bool copy_if_there(std::uintptr_t from, void* to, std::size_t bytes) noexcept;

}  // namespace qk

#endif  // SUPPORT_CAREFUL_READING_H_
