#ifndef QKMEM_CORE_SWITCHES_H_
#define QKMEM_CORE_SWITCHES_H_

#include "core/records.h"
#include "support/shared_variable.h"

/** One record for each watched routine, see qk::mem::Routine. */
extern qk_mem_debug Qk_mem_debug[20];
extern std::int32_t Qk_mem_debug_initialized;

/** Sections of the report, a sum of QK_MEM_DUMP_ constants. */
extern std::uint32_t Qk_mem_dump_opts;

namespace qk::mem {

/** Index of a routine's record in Qk_mem_debug. */
enum class Routine {
  kGlobal,
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
  kNewBlock,  // this and the next two can be named in lists; nothing asks them
  kBlockMgmt,
  kPtrMgmt,
  kInfo,
  kBaseline,
  kHeapsize,  // named only, like the last
  kMallinfo
};

inline constexpr int kRoutines = 20;

/** Names of the routines, in the order of Routine, as lists of a configuration have them. */
extern const char* const kRoutineNames[kRoutines];

[[nodiscard]] inline qk_mem_debug& switches_of(Routine routine) {
  return Qk_mem_debug[static_cast<int>(routine)];
}

[[nodiscard]] inline qk_mem_debug& global_switches() { return switches_of(Routine::kGlobal); }

/** Whether a routine's trace lines are wanted. */
[[nodiscard]] inline bool traces(const qk_mem_debug& switches) {
  return qk::load(switches.debug) != 0;
}

/** Whether a routine's errors are wanted, and the warnings that don't depend on `on`. */
[[nodiscard]] inline bool reports(const qk_mem_debug& switches) {
  return qk::load(switches.debug) != 0 || qk::load(switches.exceptions) != 0;
}

/** Whether a routine checks for misuse. */
[[nodiscard]] inline bool warns(const qk_mem_debug& switches) {
  return qk::load(switches.on) != 0 && reports(switches);
}

/** Whether the report follows each event of a routine. */
[[nodiscard]] inline bool dumps(const qk_mem_debug& switches) {
  return qk::load(switches.ctrlblks) != 0;
}

/** Whether anything is configured. */
[[nodiscard]] inline bool debugging() { return qk::load(global_switches().on) != 0; }

/** Whether reports and baselines are available. */
[[nodiscard]] inline bool tracing() { return qk::load(global_switches().trace) != 0; }

}  // namespace qk::mem

#endif  // QKMEM_CORE_SWITCHES_H_
