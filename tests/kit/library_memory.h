#ifndef TESTS_KIT_LIBRARY_MEMORY_H_
#define TESTS_KIT_LIBRARY_MEMORY_H_

namespace kit {

/**
 * The memory that the library holds: tables, handles, blocks, and what is recorded on a handle.
 * Requests no memory. There is room for one list, the last one that was made.
 */
class LibraryMemory {
 public:
  /** Lists what the library holds now. */
  LibraryMemory();

  [[nodiscard]] bool has(const void* memory) const;
};

}  // namespace kit

#endif  // TESTS_KIT_LIBRARY_MEMORY_H_
