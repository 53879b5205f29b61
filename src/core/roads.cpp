#include "core/roads.h"

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/upcalls.h"
#include "support/shortcuts.h"

namespace qk::mem {

constinit std::uint8_t data_handle_is_bypassed = 0;
constinit RoadRules road_rules = {false, false};

namespace {

/** Whether a routine's events cause no check, no line, no row and no report. */
bool is_unobserved(const qk_mem_debug& switches) {
  return (qk::load(switches.on) | qk::load(switches.debug) | qk::load(switches.ctrlblks)) == 0 &&
         qk::load(Qk_mem_db) == nullptr;
}

Road with_lock_of(const qk_mem_handle& handle, Road unlocked, Road locked) {
  return handle.mtx == nullptr ? unlocked : locked;
}

/** Other routines than these are rare enough to take the slow road. */
Road find_checked_road(const qk_mem_handle& handle, Routine routine) {
  const bool is_common = routine == Routine::kMalloc || routine == Routine::kFree;
  if (!is_common || road_rules.are_slow || is_blockmgmt(handle) || handle.track == 0) {
    return Road::kSlow;
  }
  return with_lock_of(handle, Road::kRecordsChecked, Road::kRecordsCheckedLocked);
}

Road find_road(const qk_mem_handle& handle, Routine routine) {
  if (!qk::kShortcuts || !is_unobserved(switches_of(routine))) return Road::kSlow;
  // Its calls bypass the records. If the profile watches it, they must get far enough to tell.
  if (handle.id == QK_MEM_DATA_HANDLE && !debugging()) return Road::kSlow;
  const bool is_watched = qk::load(handle.profile_pool) != nullptr;
  if (is_watched && road_rules.are_checked) return find_checked_road(handle, routine);
  if (!is_blockmgmt(handle)) {
    if (handle.track == 0) return Road::kSlow;
    return is_watched ? with_lock_of(handle, Road::kRecordsWatched, Road::kRecordsWatchedLocked)
                      : with_lock_of(handle, Road::kRecords, Road::kRecordsLocked);
  }
  if (routine != Routine::kMalloc || is_watched) return Road::kSlow;
  return handle.track == 0
             ? with_lock_of(handle, Road::kPieces, Road::kPiecesLocked)
             : with_lock_of(handle, Road::kRecordedPieces, Road::kRecordedPiecesLocked);
}

bool is_data_handle_watched() {
  const qk_mem_handle* const handle = handle_slots().numbered(QK_MEM_DATA_HANDLE);
  return handle != nullptr && qk::load(handle->profile_pool) != nullptr;
}

constexpr Routine kFastRoutines[] = {Routine::kMalloc, Routine::kCalloc, Routine::kRealloc,
                                     Routine::kFree};

void set_road(qk_mem_handle& handle, Routine routine, Road road) {
  const int index = static_cast<int>(routine) - static_cast<int>(Routine::kMalloc);
  qk::store(handle.roads[index], static_cast<std::uint8_t>(road));
}

}  // namespace

void settle_roads(qk_mem_handle& handle) {
  for (const Routine routine : kFastRoutines) {
    set_road(handle, routine, find_road(handle, routine));
  }
}

void settle_all_roads() {
  assert_registry_held();
  const bool is_bypassed =
      qk::kShortcuts && is_started() && !debugging() && !is_data_handle_watched();
  qk::store(data_handle_is_bypassed, is_bypassed ? 1 : 0);
  for_each_handle(settle_roads);
}

void close_roads(qk_mem_handle& handle) {
  for (const Routine routine : kFastRoutines) set_road(handle, routine, Road::kSlow);
}

}  // namespace qk::mem
