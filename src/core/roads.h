#ifndef QKMEM_CORE_ROADS_H_
#define QKMEM_CORE_ROADS_H_

#include <cstdint>

#include "core/records.h"
#include "core/registry.h"
#include "core/switches.h"
#include "support/shared_variable.h"

/**
 * How the calls of malloc, calloc, realloc and free go, decided ahead: a call asks one question in
 * place of many. Whatever changes the answer, a switch, the trace file or the handle, settles it
 * again.
 */
namespace qk::mem {

enum class Road : std::uint8_t {
  kSlow,  // in every case that is not below, and zero: so begins a handle
  kRecords,
  kRecordsLocked,   // under the handle's lock
  kRecordsWatched,  // by the profile
  kRecordsWatchedLocked,
  kRecordsChecked,  // watched, and checked
  kRecordsCheckedLocked,
  kPieces,
  kPiecesLocked,
  kRecordedPieces,
  kRecordedPiecesLocked
};

/** The road of a handle's calls of a routine, which is one of the four. */
[[nodiscard]] inline Road road_of(const qk_mem_handle& handle, Routine routine) {
  const int index = static_cast<int>(routine) - static_cast<int>(Routine::kMalloc);
  return static_cast<Road>(qk::load(handle.roads[index]));
}

/** What else decides: under the registry's lock, before settle_all_roads(). */
struct RoadRules {
  bool are_checked;  // calls on watched handles
  bool are_slow;     // and also take the slow road, all of them
};
[[gnu::visibility("hidden")]] extern RoadRules road_rules;

/** Whether calls on the data handle go to the system's allocator and nothing else happens. */
[[gnu::visibility("hidden")]] extern std::uint8_t data_handle_is_bypassed;

/** The same of a call on any handle, asked first. Never true before the start-up is over. */
[[nodiscard]] inline bool bypasses_tracking_fast(int hid) {
  return hid == QK_MEM_DATA_HANDLE && qk::load(data_handle_is_bypassed) != 0;
}

/** To be called when the options of a handle are known, and when a survivor is back. */
void settle_roads(qk_mem_handle& handle);

/** To be called after each change of the switches or the trace file. Needs the registry's lock. */
void settle_all_roads() QK_REQUIRES(Qk_mem_mtx);

/** Sends all calls on a handle the slow way, for good. To be called before its mutex goes. */
void close_roads(qk_mem_handle& handle);

}  // namespace qk::mem

#endif  // QKMEM_CORE_ROADS_H_
