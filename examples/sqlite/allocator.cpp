#include "examples/sqlite/allocator.h"

#include <sqlite3.h>

#include <cstddef>

#include "qkmem/qkmem.h"

namespace {

/** Stands in front of each block, since SQLite asks for its size. Keeps the block aligned. */
struct alignas(16) Header {
  int size;
};

int handle = 0;

Header* header_of(void* block) { return static_cast<Header*>(block) - 1; }

std::size_t with_header(int size) { return sizeof(Header) + static_cast<std::size_t>(size); }

/** Notes the size in memory that was obtained for a block, and returns the block. */
void* block_in(void* memory, int size) {
  if (memory == nullptr) return nullptr;
  auto* const header = static_cast<Header*>(memory);
  header->size = size;
  return header + 1;
}

void* allocate(int size) { return block_in(qk_mem_malloc(handle, with_header(size)), size); }

void* resize(void* block, int size) {
  return block_in(qk_mem_realloc(handle, header_of(block), with_header(size)), size);
}

void release(void* block) {
  if (block != nullptr) qk_mem_free(handle, header_of(block));
}

int size_of(void* block) { return block == nullptr ? 0 : header_of(block)->size; }

int round_up(int size) { return (size + 7) & ~7; }

int start(void* /*unused*/) {
  // Threads use SQLite at the same time, each with a connection of its own.
  if (handle == 0) handle = qk_mem_new_handle("MULTITHREADED", "SQ");
  return handle == 0 ? SQLITE_NOMEM : SQLITE_OK;
}

/** The handle stays, so that the report shows what was not freed. */
void stop(void* /*unused*/) {}

}  // namespace

int put_sqlite_on_a_handle() {
  static const sqlite3_mem_methods methods = {allocate, release, resize, size_of,
                                              round_up, start,   stop,   nullptr};
  const int result = sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
  if (result != SQLITE_OK) return result;
  // Otherwise small blocks come from one large block of the connection, and don't show.
  return sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
}
