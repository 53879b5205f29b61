#ifndef QKMEM_TABLE_OVERHEAD_H_
#define QKMEM_TABLE_OVERHEAD_H_

#include <cstddef>

#include "core/records.h"
#include "diag/site.h"

/**
 * The library's own memory in the books. qk_mem_tracker() and qk_mem_handle_memory() are public.
 */
namespace qk::mem {

/** A place of the caller's under which the lines of a handle's memory are written. */
[[nodiscard]] Site handle_memory_site(const Site& site);

/** What qk_mem_handle_memory() does; false when there is no slot for the record. */
bool record_handle_memory(qk_mem_handle& handle, void* memory, std::size_t size, const Site& site);

}  // namespace qk::mem

#endif  // QKMEM_TABLE_OVERHEAD_H_
