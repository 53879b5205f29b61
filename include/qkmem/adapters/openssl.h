/**
 * Puts the memory of OpenSSL on a handle:
 *
 *   if (qk_mem_adapt_openssl(qk_mem_new_handle("MULTITHREADED", "SS")) != 1) exit(1);
 *
 * For C11, C++17 and later, and OpenSSL 1.1 and 3. The conventions of qkmem/qkmem.h hold here too.
 *
 * Order. Call it at the beginning of main(), before any other function of OpenSSL: once OpenSSL has
 * allocated anything, it refuses. Another library that uses OpenSSL in its constructors comes
 * first. Within a process OpenSSL has one allocator, so all of its users are on one handle, and the
 * adapter can be put to use once.
 *
 * Handle. An ordinary one, and MULTITHREADED unless a single thread uses OpenSSL. With 0, a number
 * without a handle, or a block-managed handle without BLOCKFREE, nothing changes. On a
 * block-managed handle with BLOCKFREE OpenSSL gets no memory.
 *
 * End. OpenSSL gives its tables back when the process exits. The handle is older, so that happens
 * before the report at the end, which has only what was forgotten. Don't delete the handle. On an
 * AUTOFREE handle what was forgotten isn't in the report.
 *
 * Records. Their location, and so the site, is OpenSSL's own: the file and line in OpenSSL that
 * allocates, such as bio_lib.c:83. Who called is told by labels (qk_mem_push_site()) or by
 * QK_MEM_PROFILE="STACKS SKIP=libcrypto,libssl". Blocks are aligned to 16 bytes. As OpenSSL wants
 * it, 0 bytes are null, realloc of null allocates, realloc to 0 bytes frees, and a free of null
 * does nothing. Keys in OpenSSL's secure heap, if there is one, are in a mapping of OpenSSL's, and
 * not on the handle.
 */
#ifndef QKMEM_ADAPTERS_OPENSSL_H_
#define QKMEM_ADAPTERS_OPENSSL_H_

#include <openssl/crypto.h>
#include <stddef.h>

#include "qkmem/adapters/adapter.h"
#include "qkmem/qkmem.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Where the number of the handle is; 0 before the adapter is in use. */
static inline int* qk_mem_openssl_handle(void) {
  static int hid = 0;
  return &hid;
}

static inline void* qk_mem_openssl_malloc(size_t size, const char* file, int line) {
  if (size == 0) return NULL;
  return qk_mem_imalloc(*qk_mem_openssl_handle(), size, QK_MEM_ADAPTER_ALIGNMENT, file, line);
}

static inline void qk_mem_openssl_free(void* block, const char* file, int line) {
  if (block != NULL) qk_mem_ifree(*qk_mem_openssl_handle(), block, file, line);
}

static inline void* qk_mem_openssl_realloc(void* block, size_t size, const char* file, int line) {
  if (size == 0) {
    qk_mem_openssl_free(block, file, line);
    return NULL;
  }
  return qk_mem_irealloc(*qk_mem_openssl_handle(), block, size, QK_MEM_ADAPTER_ALIGNMENT, file,
                         line);
}

/**
 * Lets OpenSSL allocate on a handle, see above.
 *
 * @return 1 as OpenSSL does, or 0 if OpenSSL has been used already, or if the handle can't serve
 *         it: qk_mem_error() is 5566 if there is no such handle. Nothing has changed then.
 *
 * Threads: no other thread uses OpenSSL meanwhile.
 */
static inline int qk_mem_iadapt_openssl(int hid, const char* file, int line) {
  if (qk_mem_frees_singly(hid, file, line) == 0) return 0;
  if (CRYPTO_set_mem_functions(qk_mem_openssl_malloc, qk_mem_openssl_realloc,
                               qk_mem_openssl_free) != 1) {
    return 0;
  }
  *qk_mem_openssl_handle() = hid;
  return 1;
}

#ifdef __cplusplus
} /* extern "C" */
#endif

#define qk_mem_adapt_openssl(hid) qk_mem_iadapt_openssl((hid), __FILE__, __LINE__)

#endif /* QKMEM_ADAPTERS_OPENSSL_H_ */
