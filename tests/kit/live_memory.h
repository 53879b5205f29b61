#ifndef TESTS_KIT_LIVE_MEMORY_H_
#define TESTS_KIT_LIVE_MEMORY_H_

#include <cstddef>
#include <functional>

/**
 * What a test program has obtained and not given back, whoever holds it; see failing_allocator.h.
 */
namespace kit {

/** Notes from now on each piece of memory that is obtained, until it is given back. */
void watch_memory();

/** Whether a piece of memory was obtained since and is not given back. */
[[nodiscard]] bool is_live(const void* memory);

/** Calls `visit` with each such piece. It must neither obtain nor give back memory. */
void for_each_live(const std::function<void(const void*)>& visit);

/** What the stand-ins of the allocator tell; both pass over null, and do nothing unless watched. */
void note_allocated(void* memory);
void note_freed(void* memory);

}  // namespace kit

#endif  // TESTS_KIT_LIVE_MEMORY_H_
