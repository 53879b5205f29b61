#ifndef TESTS_KIT_PLACEMENT_H_
#define TESTS_KIT_PLACEMENT_H_

#include <cstddef>
#include <new>

/**
 * Where the system's allocator puts memory, for tests whose texts must not depend on it: a record's
 * pointer array is chosen by bits 4 to 6 of its address, and so are the order of rows in reports
 * and the events that make arrays.
 */
namespace kit {

/**
 * Makes all memory that is asked for from now on begin at a multiple of 128 bytes, and what
 * operator new makes 16 bytes behind one: a handle then has one or two arrays, in which records
 * stand in the order they were made.
 */
void align_requests();

/** What serves the requests of a test program, see failing_allocator.h; null when it can't. */
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
