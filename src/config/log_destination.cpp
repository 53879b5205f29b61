#include "config/log_destination.h"

#include "diag/log.h"
#include "diag/output_file.h"
#include "support/text.h"

namespace qk::mem {
namespace {

/**
 * Set when OFF has closed a log file. A later configuration then opens no log unless it names one:
 * a user who switched the log off does not get a "qkmem.log" unasked.
 */
constinit bool log_was_closed QK_GUARDED_BY(Qk_mem_mtx) = false;

FILE* open_destination(const char* name, bool append, const char* routine) {
  if (qk_stricmp(name, "STDERR") == 0) return stderr;
  if (qk_stricmp(name, "STDOUT") == 0) return stdout;
  return open_output(routine, name, append ? "a" : "w");
}

}  // namespace

bool choose_log(const LogChoice& choice, const char* routine) {
  assert_registry_held();
  const bool is_chosen = Qk_mem_log != nullptr || log_was_closed;
  if (choice.name == nullptr && is_chosen) return true;
  const char* name = choice.name == nullptr ? "qkmem.log" : choice.name;
  qk::copy_text(Qk_mem_log_filename, sizeof Qk_mem_log_filename, name);
  replace_log(nullptr);
  log_was_closed = false;
  if (qk_stricmp(name, "NONE") == 0) return true;
  FILE* stream = open_destination(name, choice.append, routine);
  if (stream == nullptr) return false;
  // Before it becomes the log, to which other threads write.
  if (choice.flush) {
    unbuffer(stream);
  } else if (!is_standard_stream(stream)) {
    provide_log_buffer(stream);
  }
  replace_log(stream);
  return true;
}

void switch_log_off() {
  assert_registry_held();
  if (Qk_mem_log == nullptr || is_standard_stream(Qk_mem_log)) return;
  replace_log(nullptr);
  log_was_closed = true;
}

}  // namespace qk::mem
