#ifndef QKMEM_DIAG_CALL_CONTEXT_H_
#define QKMEM_DIAG_CALL_CONTEXT_H_

#include <cstdint>

#include "core/source_location.h"
#include "core/switches.h"
#include "support/text.h"

namespace qk::mem {

/** What every line about a call needs: the routine's name, the caller's location, the switches. */
struct CallContext {
  const char* routine;  // in front of every line
  const char* path;     // the caller's file as it was passed
  int line;             // the caller's line
  qk_mem_debug* switches;

  CallContext(Routine of, const char* caller_path, int caller_line)
      : CallContext(names_of(of).logged, caller_path, caller_line, switches_of(of)) {}

  /** For routines that have no switches of their own. */
  CallContext(const char* routine_name, const char* caller_path, int caller_line,
              qk_mem_debug& debug)
      : routine(routine_name), path(caller_path), line(caller_line), switches(&debug) {}

  /** The last component of `path`. Searched for at each call, so only where it is needed. */
  [[nodiscard]] const char* file() const { return qk::file_name_only(path); }

  /** The location as records show it. */
  [[nodiscard]] SourceLocation location() const { return {file(), line}; }

  /** The same call in the name of another routine. */
  [[nodiscard]] CallContext as(const char* routine_name) const {
    return {routine_name, path, line, *switches};
  }

  /** The same call in the name of another routine and under other switches. */
  [[nodiscard]] CallContext as(const char* routine_name, qk_mem_debug& debug) const {
    return {routine_name, path, line, debug};
  }
};

[[nodiscard]] inline bool logs_events(const CallContext& context) {
  return logs_events(*context.switches);
}
[[nodiscard]] inline bool logs_errors(const CallContext& context) {
  return logs_errors(*context.switches);
}
[[nodiscard]] inline bool checks_misuse(const CallContext& context) {
  return checks_misuse(*context.switches);
}

/** An address as log lines and reports print it, with Qk_mem_ptr_display_size hex digits. */
[[nodiscard]] inline std::size_t as_number(const void* address) {
  return reinterpret_cast<std::uintptr_t>(address);
}

}  // namespace qk::mem

#endif  // QKMEM_DIAG_CALL_CONTEXT_H_
