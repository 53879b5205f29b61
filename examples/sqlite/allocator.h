#ifndef EXAMPLES_SQLITE_ALLOCATOR_H_
#define EXAMPLES_SQLITE_ALLOCATOR_H_

/**
 * Lets SQLite allocate all its memory on a handle with the tag SQ. To be called before any other
 * function of SQLite. Returns a code of SQLite, SQLITE_OK on success.
 */
[[nodiscard]] int put_sqlite_on_a_handle();

#endif  // EXAMPLES_SQLITE_ALLOCATOR_H_
