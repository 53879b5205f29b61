/**
 * Puts the memory of libxml2 on a handle:
 *
 *   if (qk_mem_adapt_libxml2(qk_mem_new_handle("MULTITHREADED", "XM")) != 0) exit(1);
 *   xmlInitParser();
 *
 * For C11, C++17 and later. The conventions of qkmem/qkmem.h hold here too.
 *
 * Order. Call it before any other function of libxml2, xmlInitParser() included, which allocates.
 * libxml2 doesn't refuse it later. A block from before is then unknown to the handle: it is freed
 * or resized all the same, and each time warned about. libxml2 has one allocator for all threads,
 * so all documents are on one handle. If libxml2 was built with LIBXML_THREAD_ALLOC_ENABLED,
 * xmlMalloc and its like are macros for variables of the thread, and threads that are running
 * already keep their allocator.
 *
 * Handle. An ordinary one, and MULTITHREADED unless a single thread uses libxml2. With 0, a number
 * without a handle, or a block-managed handle without BLOCKFREE, nothing changes. On a
 * block-managed handle with BLOCKFREE libxml2 gets no memory. A second handle must wait until
 * nothing is left on the first one, since blocks are freed on the newer one.
 *
 * End. xmlCleanupParser() gives back what libxml2 keeps for itself. Call it at the end of main():
 * libxml2 doesn't do so if it has an allocator that isn't its own. What is on the handle then was
 * forgotten. Don't delete the handle before.
 *
 * Records. The site is a line of this file: that of malloc, of strdup, or that of realloc for
 * blocks that were resized. Labels (qk_mem_push_site()) or QK_MEM_PROFILE="STACKS SKIP=libxml2.so"
 * tell who called. Blocks are aligned to 16 bytes. Requests for 0 bytes get 1 byte, and realloc of
 * null allocates. A free of null does nothing. What libxml2 returns, such as the text of
 * xmlGetProp(), must be given back by xmlFree(): a free() would leave the record.
 */
#ifndef QKMEM_ADAPTERS_LIBXML2_H_
#define QKMEM_ADAPTERS_LIBXML2_H_

#include <libxml/xmlmemory.h>
#include <stddef.h>

#include "qkmem/adapters/adapter.h"
#include "qkmem/qkmem.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Where the number of the handle is; 0 before the adapter is in use. */
static inline int* qk_mem_libxml2_handle(void) {
  static int hid = 0;
  return &hid;
}

static inline void* qk_mem_libxml2_malloc(size_t size) {
  return qk_mem_imalloc(*qk_mem_libxml2_handle(), size == 0 ? 1 : size, QK_MEM_ADAPTER_ALIGNMENT,
                        __FILE__, __LINE__);
}

static inline void* qk_mem_libxml2_realloc(void* block, size_t size) {
  return qk_mem_irealloc(*qk_mem_libxml2_handle(), block, size == 0 ? 1 : size,
                         QK_MEM_ADAPTER_ALIGNMENT, __FILE__, __LINE__);
}

static inline char* qk_mem_libxml2_strdup(const char* text) {
  if (text == NULL) return NULL;
  return qk_mem_istrdup(*qk_mem_libxml2_handle(), text, __FILE__, __LINE__);
}

static inline void qk_mem_libxml2_free(void* block) {
  if (block != NULL) qk_mem_ifree(*qk_mem_libxml2_handle(), block, __FILE__, __LINE__);
}

/**
 * Lets libxml2 allocate on a handle, see above.
 *
 * @return 0, or -1 if the handle can't serve libxml2: qk_mem_error() is 5566 if there is no such
 *         handle. Nothing has changed then.
 *
 * Threads: no other thread uses libxml2 meanwhile.
 */
static inline int qk_mem_iadapt_libxml2(int hid, const char* file, int line) {
  if (qk_mem_frees_singly(hid, file, line) == 0) return -1;
  *qk_mem_libxml2_handle() = hid;
  return xmlMemSetup(qk_mem_libxml2_free, qk_mem_libxml2_malloc, qk_mem_libxml2_realloc,
                     qk_mem_libxml2_strdup);
}

#ifdef __cplusplus
} /* extern "C" */
#endif

#define qk_mem_adapt_libxml2(hid) qk_mem_iadapt_libxml2((hid), __FILE__, __LINE__)

#endif /* QKMEM_ADAPTERS_LIBXML2_H_ */
