#ifndef SUPPORT_APART_MEMORY_H_
#define SUPPORT_APART_MEMORY_H_

#include <cstddef>
#include <cstdint>

#include "support/mtx.h"
#include "support/shared_variable.h"

/**
 * The library's tables in mappings of their own, where a program that writes past its blocks in the
 * heap doesn't reach them: without its records, the library could not say what was written to.
 */
namespace qk::apart {

[[gnu::visibility("hidden")]] extern std::uint8_t is_wanted;

/** Whether new tables lie apart. It stays so: then also some that there are do. */
[[nodiscard]] inline bool is_used() { return load(is_wanted) != 0; }
void use();

/** Memory that is zero; null, with errno, if the system refuses. */
[[nodiscard]] void* allocate(std::size_t bytes);

/**
 * Memory with the contents of `memory`, which is memory of allocate() or null. It can be the same,
 * and what it has gained is zero only if it is another one.
 */
[[nodiscard]] void* resize(void* memory, std::size_t bytes);

/** Whether memory is of allocate(). */
[[nodiscard]] bool has(const void* memory);

/** Takes back memory of allocate(). */
void release(void* memory);

/** No other lock is taken under it. */
[[gnu::visibility("hidden")]] extern Mtx lock;

}  // namespace qk::apart

#endif  // SUPPORT_APART_MEMORY_H_
