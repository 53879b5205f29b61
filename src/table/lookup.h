#ifndef QKMEM_TABLE_LOOKUP_H_
#define QKMEM_TABLE_LOOKUP_H_

#include "core/records.h"
#include "diag/site.h"

extern "C" {

/**
 * Turns a handle's number into its record, for `routine`, whose switches are `debug`.
 *
 * @return 0 with the record in `*handle`; else 5566, which is also left as the thread's code.
 */
int qk_mem_get_handle(int hid, qk_mem_handle** handle, const char* routine, const char* file,
                      int line, qk_mem_debug* debug);

}  // extern "C"

namespace qk::mem {

/** The handle of a number, or null when there is none, which is reported. */
[[nodiscard]] qk_mem_handle* open_handle(int hid, const Site& site);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_LOOKUP_H_
