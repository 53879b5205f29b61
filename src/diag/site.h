#ifndef QKMEM_DIAG_SITE_H_
#define QKMEM_DIAG_SITE_H_

#include "core/own_places.h"
#include "core/switches.h"
#include "support/text.h"

namespace qk::mem {

/** Who speaks in a log line, under which switches, and for which place in the caller's source. */
struct Site {
  const char* routine;  // begins every line
  const char* path;     // the caller's file as it was passed
  int line;             // the caller's line
  qk_mem_debug* switches;

  Site(const char* routine_name, const char* caller_path, int caller_line, qk_mem_debug& debug)
      : routine(routine_name), path(caller_path), line(caller_line), switches(&debug) {}

  Site(const char* routine_name, Place own_place, qk_mem_debug& debug)
      : Site(routine_name, own_place.file, own_place.line, debug) {}

  /** The last component of `path`, found only where it is shown or recorded. */
  [[nodiscard]] const char* file() const { return qk::file_name_only(path); }

  /** The same place, with another routine speaking. */
  [[nodiscard]] Site as(const char* routine_name) const {
    return {routine_name, path, line, *switches};
  }

  /** The same place, with another routine speaking under other switches. */
  [[nodiscard]] Site as(const char* routine_name, qk_mem_debug& debug) const {
    return {routine_name, path, line, debug};
  }
};

[[nodiscard]] inline bool traces(const Site& site) { return traces(*site.switches); }
[[nodiscard]] inline bool reports(const Site& site) { return reports(*site.switches); }
[[nodiscard]] inline bool warns(const Site& site) { return warns(*site.switches); }

/** How addresses are printed: with Qk_mem_ptr_display_size digits. */
[[nodiscard]] inline std::size_t shown(const void* address) {
  return reinterpret_cast<std::size_t>(address);
}

}  // namespace qk::mem

#endif  // QKMEM_DIAG_SITE_H_
