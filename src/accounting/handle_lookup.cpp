#include "accounting/handle_lookup.h"

#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/log.h"

namespace qk::mem {

qk_mem_handle* look_up_handle(int hid, const CallContext& context) {
  if (qk_mem_handle* handle = find_handle(hid)) return handle;
  if (logs_events(context)) {
    qk_mem_write_log("   %s: ERROR: invalid hid %d at %s:%d\n", context.routine, hid,
                     context.file(), context.line);
  }
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  return nullptr;
}

}  // namespace qk::mem
