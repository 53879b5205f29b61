#ifndef QKMEM_CONFIG_LOG_DESTINATION_H_
#define QKMEM_CONFIG_LOG_DESTINATION_H_

#include "core/registry.h"

/** Where the log goes, as a configuration says. */
namespace qk::mem {

/** What a configuration says about the log. */
struct LogChoice {
  const char* name;  // a file, STDERR, STDOUT or NONE; null if it names none
  bool append;       // to extend the file
  bool flush;        // to write each line at once
};

/**
 * Opens the log that a configuration names, or "qkmem.log". If it names none, an open log stays,
 * and no log is opened after switch_log_off(). A failure is reported on standard output in the name
 * of `routine`. Needs the registry's lock. @return false if the log can't be opened.
 */
[[nodiscard]] bool choose_log(const LogChoice& choice, const char* routine) QK_REQUIRES(Qk_mem_mtx);

/** Closes a log file; a standard stream stays the log. Needs the registry's lock. */
void switch_log_off() QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_LOG_DESTINATION_H_
