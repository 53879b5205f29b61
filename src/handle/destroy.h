#ifndef QKMEM_HANDLE_DESTROY_H_
#define QKMEM_HANDLE_DESTROY_H_

#include "core/records.h"
#include "core/registry.h"
#include "core/source_location.h"

namespace qk::mem {

/**
 * Announces the deletion of an AUTOFREE handle and hides it. For the end of the process while other
 * threads may be using it: nothing is freed, no object is destroyed. Needs the registry's lock.
 */
void abandon_handle(qk_mem_handle& handle, SourceLocation location) QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_HANDLE_DESTROY_H_
