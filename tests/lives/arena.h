#ifndef TESTS_LIVES_ARENA_H_
#define TESTS_LIVES_ARENA_H_

#include <cstddef>

/**
 * The allocator of a life. Each source file of the library gets its memory from regions of its own,
 * at addresses that depend on nothing but that file's requests. So memory that only a shortcut needs
 * moves nothing else, and the user's memory has the same addresses with shortcuts and without. It
 * forgives a free of what is not allocated. It is not thread-safe.
 */
namespace lives::arena {

/** The owner of the user's memory. All others are source files. */
inline constexpr char kUser[] = "user";

/** `owner` is "user" or the path of a source file. Null with ENOMEM if it fails. */
[[nodiscard]] void* allocate(std::size_t size, const char* owner);
[[nodiscard]] void* allocate_zeroed(std::size_t size, const char* owner);

/** As realloc(). Memory that isn't allocated is taken for null. */
[[nodiscard]] void* resize(void* memory, std::size_t size, const char* owner);

/** Does nothing for memory that isn't allocated, or is pinned. */
void release(void* memory);

/** Chooses how many of the eight values bits 4 to 6 of addresses take: 1 to 8. */
void spread_over(unsigned values);

/** Makes the `nth` request from now on fail, of those that records or users see; 0: none. */
void fail_request(unsigned nth);

/** Makes that part of the requests for indexes fail, in per cent. Nothing must show that. */
void fail_indexes(unsigned percent);

/** Protects memory from release(), so that its contents stay what the library wrote there. */
void pin(const void* memory);
void unpin(const void* memory);

/** Whether an address is the start of memory that is allocated. */
[[nodiscard]] bool is_allocated(const void* memory);

/** The user's bytes, rounded up: what the life shows as the size of the heap. */
[[nodiscard]] std::size_t heap_size();

}  // namespace lives::arena

#endif  // TESTS_LIVES_ARENA_H_
