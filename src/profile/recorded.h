#ifndef QKMEM_PROFILE_RECORDED_H_
#define QKMEM_PROFILE_RECORDED_H_

#include <cstdint>
#include <string_view>

#include "profile/notes.h"
#include "profile/pool.h"
#include "recording/recorder.h"

/**
 * What the profile tells a recording: events, and what their numbers stand for. An event is told
 * under the lock of its handle, and before it is booked: whoever holds the locks of all handles sees
 * figures and events that agree.
 */
namespace qk::mem::profile {

/** Whether events have to be told. */
[[nodiscard]] inline bool is_recorded() {
  return (qk::load(unusual_made) & unusual::kRecorded) != 0;
}

/** Memory that an event is about. */
struct RecordedBlock {
  const void* address;
  std::uint64_t bytes;
};

/** That of the record in a slot. */
[[nodiscard]] inline RecordedBlock block_in(SlotPlace place) {
  const qk_mem_ptr& slot = place.array.ptrs[place.index];
  return {qk::load(slot.address), qk::load(slot.count) * qk::load(slot.size)};
}

void record_made(Pool& pool, const Site& site, std::uint64_t event, RecordedBlock block);

/** The release of a block that was booked, or a part of it. */
void record_gone(recording::EventKind kind, const Pool& pool, Mark mark, std::uint64_t event,
                 RecordedBlock block);

/** Memory that is made, and not followed. */
void record_made_and_lost(Pool& pool, std::uint64_t event, RecordedBlock block);

/** A snapshot was taken. The recording has its name and its moment, and no figures. */
void record_snapshot(std::uint64_t event, std::string_view name);

/** All memory of a pool is gone, or its handle. */
void record_of_pool(recording::EventKind kind, const Pool& pool, std::uint64_t event);

/**
 * Begins a recording in the file that a pattern stands for, and ends another one. The caller holds
 * the locks of all handles. The pattern stays. If the file gets more bytes than a limit that is not
 * 0, the oldest events go.
 */
void begin_record(const char* pattern, std::uint64_t limit);

/** Ends it with the sums of all figures. The caller holds the locks of all handles. */
void end_record();

/** The same where other threads may be in the middle of an event: the files stay as they are. */
void abandon_record();

/** Whether what is recorded goes to the file of this pattern. */
[[nodiscard]] bool is_recorded_to(const char* pattern);

/** In the child of a fork: what is recorded until now is the parent's. */
void leave_record_to_parent();

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_RECORDED_H_
