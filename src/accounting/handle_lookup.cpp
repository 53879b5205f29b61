#include "accounting/handle_lookup.h"

#include <string_view>

#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/log.h"

namespace qk::mem {
namespace {

/** What stands before the name of a call in its routine's name. */
constexpr std::string_view kPrefix = "qk_mem_i";

}  // namespace

qk_mem_handle* look_up_handle(int hid, const CallContext& context) {
  if (qk_mem_handle* handle = find_handle(hid)) return handle;
  if (logs_events(context)) {
    qk_mem_write_log("   %s: ERROR: invalid hid %d at %s:%d\n", context.routine, hid,
                     context.file(), context.line);
  }
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  return nullptr;
}

void report_deleted_handle(int hid, const CallContext& context) {
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  if (!logs_errors(context)) return;
  qk_mem_write_log("   %s: ERROR: %s on deleted handle %d at %s:%d\n", context.routine,
                   context.routine + kPrefix.size(), hid, context.file(), context.line);
}

}  // namespace qk::mem
