/** The version of qkmem. Numbers are as in semantic versioning. */
#ifndef QKMEM_VERSION_H_
#define QKMEM_VERSION_H_

/** The version of the headers. The major number changes when programs must be compiled anew. */
#define QK_MEM_VERSION_MAJOR 1
#define QK_MEM_VERSION_MINOR 0 /**< changes when something is added */
#define QK_MEM_VERSION_PATCH 0 /**< changes when only faults are mended */

#define QK_MEM_VERSION_TEXT_(major, minor, patch) #major "." #minor "." #patch
#define QK_MEM_VERSION_OF_(major, minor, patch) QK_MEM_VERSION_TEXT_(major, minor, patch)

/** The same as a string literal, such as "1.0.0". */
#define QK_MEM_VERSION \
  QK_MEM_VERSION_OF_(QK_MEM_VERSION_MAJOR, QK_MEM_VERSION_MINOR, QK_MEM_VERSION_PATCH)

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Returns the version of the library that the program runs with, such as "1.0.0". It can be later
 * than QK_MEM_VERSION, which is that of the headers that the program was compiled with.
 *
 * The string is the library's and lives as long as it. The call can't fail, doesn't start the
 * library up, and can be made by any thread and in signal handlers.
 */
const char* qk_mem_version(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#pragma GCC visibility pop

#endif /* QKMEM_VERSION_H_ */
