#ifndef QKMEM_TABLE_SLICES_H_
#define QKMEM_TABLE_SLICES_H_

#include "core/records.h"
#include "diag/site.h"

/**
 * The slices of large pointer arrays: bookkeeping of the library's own, recorded as 'H' on the
 * handle. Without them, as when there was no memory, everything is found just the same, more
 * slowly. All calls need the registry's lock and the handle's.
 */
namespace qk::mem {

/** After a growth: gives an array that is large by now slices for all its slots. */
void keep_slices(qk_mem_handle& handle, qk_mem_ptr_array& array, const Site& site);

/** Releases the slices of an array. */
void drop_slices(qk_mem_handle& handle, qk_mem_ptr_array& array, const Site& site);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_SLICES_H_
