#ifndef TESTS_KIT_LIVE_MEMORY_H_
#define TESTS_KIT_LIVE_MEMORY_H_

#include <cstddef>
#include <functional>

/** The memory that a test program has allocated and not freed; see failing_allocator.h. */
namespace kit {

/** Starts to keep track of memory that is allocated and freed. */
void watch_memory();

/** Whether memory was allocated since then and is not freed. */
[[nodiscard]] bool is_live(const void* memory);

/** Calls `visit` with the address of each such memory. It must not allocate or free any. */
void for_each_live(const std::function<void(const void*)>& visit);

/** For the replaced functions of the allocator. Both ignore null, and all before watch_memory(). */
void note_allocated(void* memory);
void note_freed(void* memory);

}  // namespace kit

#endif  // TESTS_KIT_LIVE_MEMORY_H_
