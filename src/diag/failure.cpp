#include "diag/failure.h"

#include <cerrno>
#include <cstdarg>

#include "core/registry.h"
#include "diag/log.h"
#include "support/format.h"
#include "support/system.h"

namespace qk::mem {

void set_error_from_errno() { Qk_mem_error.set(qk_error_no(errno)); }

void report_failure(const CallContext& context, const char* format, ...) {
  const int error = errno;
  set_error_from_errno();
  if (!logs_errors(context)) return;
  char what[kLineSize] = "";
  va_list args;
  va_start(args, format);
  qk_vsnprintf(what, sizeof what, format, args);
  va_end(args);
  char why[256];
  qk_mem_write_log("   %s: ERROR: %s: %d %s\n", context.routine, what, error,
                   qk_error_msg_r(error, why, sizeof why));
}

}  // namespace qk::mem
