/**
 * Puts the memory of SQLite on a handle:
 *
 *   if (qk_mem_adapt_sqlite(qk_mem_new_handle("MULTITHREADED", "SQ")) != SQLITE_OK) exit(1);
 *
 * For C11, C++17 and later. The conventions of qkmem/qkmem.h hold here too.
 *
 * Order. Call it before any other function of SQLite. SQLite itself refuses it later, until
 * sqlite3_shutdown(), after which another handle can follow. Within a process SQLite has one
 * allocator, so all connections are on one handle.
 *
 * Handle. An ordinary one, and MULTITHREADED unless a single thread uses SQLite. With 0, a number
 * without a handle, or a block-managed handle without BLOCKFREE, nothing changes. On a
 * block-managed handle with BLOCKFREE SQLite gets no memory.
 *
 * End. Statements, connections and what sqlite3_malloc() has returned stay on the handle until they
 * are given back. A connection that is closed with all its statements finalized leaves little, and
 * sqlite3_shutdown() the rest. Don't delete the handle before, nor in order to clean up: that frees
 * what was forgotten, and no report shows it.
 *
 * Records. SQLite asks for the size of a block. So 8 bytes in front of each block have it, as with
 * SQLite's own allocator, and are part of the record. Blocks are aligned to 8 bytes, as SQLite
 * promises. A free of null does nothing. The site is a line of this file: that of malloc, or that
 * of realloc for blocks that were resized. Who called is told by labels (qk_mem_push_site()) or by
 * QK_MEM_PROFILE="STACKS SKIP=libsqlite3". The lookaside of connections is switched off: otherwise
 * small blocks come out of one large block, and don't show. Afterwards
 * sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 1200, 100) has it back.
 */
#ifndef QKMEM_ADAPTERS_SQLITE_H_
#define QKMEM_ADAPTERS_SQLITE_H_

#include <sqlite3.h>
#include <stddef.h>
#include <stdint.h>

#include "qkmem/adapters/adapter.h"
#include "qkmem/qkmem.h"

#ifdef __cplusplus
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
extern "C" {
#endif

/** Where the number of the handle is; 0 before the adapter is in use. */
static inline int* qk_mem_sqlite_handle(void) {
  static int hid = 0;
  return &hid;
}

/** The memory with the block in it, which begins with the block's size. */
static inline int64_t* qk_mem_sqlite_header(void* block) { return (int64_t*)block - 1; }

/** Notes the size in memory that was obtained for a block, and returns the block. */
static inline void* qk_mem_sqlite_block(void* memory, int size) {
  int64_t* const header = (int64_t*)memory;
  if (header == NULL) return NULL;
  *header = size;
  return header + 1;
}

static inline void* qk_mem_sqlite_malloc(int size) {
  void* const memory = qk_mem_imalloc(*qk_mem_sqlite_handle(), sizeof(int64_t) + (size_t)size,
                                      QK_MEM_ADAPTER_ALIGNMENT, __FILE__, __LINE__);
  return qk_mem_sqlite_block(memory, size);
}

static inline void* qk_mem_sqlite_realloc(void* block, int size) {
  void* const memory =
      qk_mem_irealloc(*qk_mem_sqlite_handle(), qk_mem_sqlite_header(block),
                      sizeof(int64_t) + (size_t)size, QK_MEM_ADAPTER_ALIGNMENT, __FILE__, __LINE__);
  return qk_mem_sqlite_block(memory, size);
}

static inline void qk_mem_sqlite_free(void* block) {
  if (block == NULL) return;
  qk_mem_ifree(*qk_mem_sqlite_handle(), qk_mem_sqlite_header(block), __FILE__, __LINE__);
}

static inline int qk_mem_sqlite_size(void* block) {
  return block == NULL ? 0 : (int)*qk_mem_sqlite_header(block);
}

static inline int qk_mem_sqlite_roundup(int size) { return (size + 7) & ~7; }

static inline int qk_mem_sqlite_start(void* unused) {
  (void)unused;
  return SQLITE_OK;
}

static inline void qk_mem_sqlite_stop(void* unused) { (void)unused; }

/**
 * Lets SQLite allocate on a handle, see above.
 *
 * @return SQLITE_OK; SQLITE_MISUSE if SQLite has been used already, or if the handle can't serve
 *         it: qk_mem_error() is 5566 if there is no such handle. Nothing has changed then.
 *
 * Threads: no other thread uses SQLite meanwhile.
 */
static inline int qk_mem_iadapt_sqlite(int hid, const char* file, int line) {
  static const sqlite3_mem_methods methods = {
      qk_mem_sqlite_malloc,  qk_mem_sqlite_free,  qk_mem_sqlite_realloc, qk_mem_sqlite_size,
      qk_mem_sqlite_roundup, qk_mem_sqlite_start, qk_mem_sqlite_stop,    NULL};
  if (qk_mem_frees_singly(hid, file, line) == 0) return SQLITE_MISUSE;
  const int result = sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
  if (result != SQLITE_OK) return result;
  *qk_mem_sqlite_handle() = hid;
  return sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
}

#ifdef __cplusplus
} /* extern "C" */
#pragma GCC diagnostic pop
#endif

#define qk_mem_adapt_sqlite(hid) qk_mem_iadapt_sqlite((hid), __FILE__, __LINE__)

#endif /* QKMEM_ADAPTERS_SQLITE_H_ */
