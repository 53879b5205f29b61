#ifndef QKMEM_CORE_SWITCHES_H_
#define QKMEM_CORE_SWITCHES_H_

#include <cstdio>

#include "core/records.h"
#include "support/shared_variable.h"

#pragma GCC visibility push(hidden)
/** The debug switches: one record for each routine, see qk::mem::Routine. */
extern qk_mem_debug Qk_mem_debug[20];
extern std::int32_t Qk_mem_debug_initialized;

/** The trace file: one tab-separated row per event. Null while none is written. */
extern FILE* Qk_mem_db;

/** The sections of the report, a sum of QK_MEM_DUMP_ constants. */
extern std::uint32_t Qk_mem_dump_opts;
#pragma GCC visibility pop

namespace qk::mem {

/** Index of a routine in kRoutineNames and Qk_mem_debug. */
enum class Routine {
  kGlobal,  // no routine: the switches that hold for the library as a whole
  kNewHandle,
  kDelHandle,
  kClearHandle,
  kMalloc,
  kCalloc,
  kRealloc,
  kFree,
  kStrdup,
  kRegister,
  kDeregister,
  kMarralloc,
  kArrfree,
  kNewBlock,  // this and the next two can be listed, but nothing reads their switches
  kBlockMgmt,
  kPtrMgmt,
  kInfo,
  kBaseline,
  kHeapsize,  // this and kMallinfo can only be listed
  kMallinfo
};

inline constexpr int kRoutines = 20;

/** The two names of a routine. */
struct RoutineNames {
  const char* listed;  // in the lists of a configuration
  const char* logged;  // in front of its lines in the log
};

/** In the order of Routine. */
inline constexpr RoutineNames kRoutineNames[] = {
    {"global", ""},
    {"qk_mem_inew_handle", "qk_mem_inew_handle"},
    {"qk_mem_idel_handle", "qk_mem_idel_handle"},
    {"qk_mem_iclear_handle", "qk_mem_iclear_handle"},
    {"qk_imalloc", "qk_mem_imalloc"},
    {"qk_icalloc", "qk_mem_icalloc"},
    {"qk_irealloc", "qk_mem_irealloc"},
    {"qk_ifree", "qk_mem_ifree"},
    {"qk_istrdup", "qk_mem_istrdup"},
    {"qk_iregister", "qk_mem_iregister"},
    {"qk_ideregister", "qk_mem_ideregister"},
    {"qk_imarralloc", "qk_mem_imarralloc"},
    {"qk_iarrfree", "qk_mem_iarrfree"},
    {"qk_mem_new_block", "qk_mem_new_block"},
    {"qk_mem_block_mgmt", ""},
    {"qk_mem_ptr_mgmt", ""},
    {"qk_mem_info", "qk_mem_info"},
    {"qk_mem_baseline", "qk_mem_baseline"},
    {"qk_heapsize", ""},
    {"qk_mallinfo", ""},
};
static_assert(sizeof kRoutineNames / sizeof *kRoutineNames == kRoutines);

[[nodiscard]] constexpr const RoutineNames& names_of(Routine routine) {
  return kRoutineNames[static_cast<int>(routine)];
}

[[nodiscard]] inline qk_mem_debug& switches_of(Routine routine) {
  return Qk_mem_debug[static_cast<int>(routine)];
}

[[nodiscard]] inline qk_mem_debug& global_switches() { return switches_of(Routine::kGlobal); }

/** Whether a routine's events are logged, one line each. */
[[nodiscard]] inline bool logs_events(const qk_mem_debug& switches) {
  return qk::load(switches.debug) != 0;
}

/** Whether a routine's errors are logged, and the warnings that don't depend on `on`. */
[[nodiscard]] inline bool logs_errors(const qk_mem_debug& switches) {
  return qk::load(switches.debug) != 0 || qk::load(switches.exceptions) != 0;
}

/** Whether a routine checks its arguments for misuse, and warns. */
[[nodiscard]] inline bool checks_misuse(const qk_mem_debug& switches) {
  return qk::load(switches.on) != 0 && logs_errors(switches);
}

/** Whether the report is logged after each event of a routine. */
[[nodiscard]] inline bool reports_events(const qk_mem_debug& switches) {
  return qk::load(switches.ctrlblks) != 0;
}

/** Whether anything is configured. */
[[nodiscard]] inline bool debugging() { return qk::load(global_switches().on) != 0; }

/** Whether reports and baselines are available. */
[[nodiscard]] inline bool has_reports() { return qk::load(global_switches().trace) != 0; }

}  // namespace qk::mem

#endif  // QKMEM_CORE_SWITCHES_H_
