#ifndef TESTS_KIT_PLACEMENT_H_
#define TESTS_KIT_PLACEMENT_H_

#include <cstddef>
#include <new>

/**
 * Fixes where the system's allocator puts memory, for tests whose expected texts depend on it: bits
 * 4 to 6 of an address choose its pointer array, and thereby the order of rows in reports and the
 * events that create arrays.
 */
namespace kit {

/**
 * Makes all memory that is allocated from now on begin at a multiple of 128 bytes, and memory of
 * operator new 16 bytes above one. A handle then has one or two arrays, with records in the order
 * of their creation.
 */
void align_requests();

/** The allocator behind failing_allocator.h. Its functions return null on failure. */
namespace placed {
[[nodiscard]] void* malloc(std::size_t size);
[[nodiscard]] void* calloc(std::size_t num, std::size_t size);
[[nodiscard]] void* realloc(void* ptr, std::size_t size);
[[nodiscard]] char* strdup(const char* text);
[[nodiscard]] void* operator_new(std::size_t size);
[[nodiscard]] void* operator_new(std::size_t size, const std::nothrow_t& tag);
}  // namespace placed

}  // namespace kit

#endif  // TESTS_KIT_PLACEMENT_H_
