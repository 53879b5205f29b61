#ifndef QKMEM_TABLE_LOOKUP_H_
#define QKMEM_TABLE_LOOKUP_H_

#include "core/records.h"
#include "diag/site.h"

namespace qk::mem {

/** The handle of a number, or null when there is none, which is reported. */
[[nodiscard]] qk_mem_handle* open_handle(int hid, const Site& site);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_LOOKUP_H_
