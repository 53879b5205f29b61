#include "handle/warnings.h"

#include "core/registry.h"
#include "diag/log.h"

namespace qk::mem {

void warn_handle_array_not_found(const Site& site, const void* array) {
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] Qk_mem_handles ptr not found at %s:%d\n",
                   site.routine, QK_MEM_OVERHEAD_HANDLE, Qk_mem_ptr_display_size, shown(array),
                   site.file(), site.line);
}

}  // namespace qk::mem
