#ifndef QKMEM_RECORDING_RECORDER_H_
#define QKMEM_RECORDING_RECORDER_H_

#include <cstdint>
#include <string_view>

#include "formats/recording.h"
#include "formats/recording_event.h"
#include "formats/recording_fields.h"
#include "support/mtx.h"
#include "support/shared_variable.h"

/**
 * Writes recordings, see docs/recording.md. Each thread fills a chunk of its own, without a lock. It
 * lies in a mapping of the tail, so that nothing is lost when the process is killed. Knows nothing
 * of the profile but the numbers of its sites and pools.
 */
namespace qk::mem::recording {

enum class State : std::uint8_t {
  kOff,
  kOn,
  kAwaited  // in the child of a fork: its first event begins a recording of its own
};

[[gnu::visibility("hidden")]] extern std::uint8_t state;

/** Guards files and what is written besides events. No other lock is taken under it. */
[[gnu::visibility("hidden")]] extern qk::Mtx lock;

inline void assert_recorder_held() QK_ASSERTS_HELD(lock) { lock.assert_held(); }

[[nodiscard]] inline State state_now() { return static_cast<State>(qk::acquire(state)); }
[[nodiscard]] inline bool is_on() { return state_now() == State::kOn; }

/**
 * Begins a recording in a file of this name, of so many bytes or, for 0, any. False, and it was told
 * why, if that fails. No event is under way.
 */
[[nodiscard]] bool begin_recording(std::string_view name, std::uint64_t limit) QK_REQUIRES(lock);

/**
 * The highest number of the events that were dropped, since the file may have no more than `limit`
 * bytes. Whenever it has changed, levels have to be written.
 */
[[gnu::visibility("hidden")]] extern std::uint64_t dropped_up_to;

/** Writes the chunks that are being filled. No event is under way. */
void finish_events() QK_REQUIRES(lock);

/** Ends the recording, which is complete, in good order. */
void finish_recording() QK_REQUIRES(lock);

/** Leaves off a recording whose files stay as they are. */
void leave_off() QK_REQUIRES(lock);

/** Writes what besides events is written so far. */
void write_process_chunk() QK_REQUIRES(lock);

/** Records nothing any more. Never waits: for a signal, at which other threads can be anywhere. */
void set_off();

/** How many events were recorded; after finish_events(). */
[[nodiscard]] std::uint64_t events_recorded() QK_REQUIRES(lock);

/**
 * In the child of a fork, whose only thread holds the lock: what is mapped and open is the
 * parent's. Another recording can begin then.
 */
void leave_to_parent(bool awaits_own) QK_REQUIRES(lock);

/** Events of the calling thread. The caller holds the lock of the handle. */
void made(std::uint64_t number, const EventBlock& block);
void gone(EventKind kind, std::uint64_t number, std::uint32_t age, const EventBlock& block,
          bool is_unsure);
void of_pool(EventKind kind, std::uint64_t number, std::uint32_t pool);

/** Notes that a snapshot of this name was taken now, behind an event. */
void write_snapshot(std::uint64_t number, std::string_view name) QK_REQUIRES(lock);

/** Room for a record of so many bytes in a chunk of a kind; null if the recording has ended. */
[[nodiscard]] char* room_for_record(ChunkKind kind, std::size_t bytes) QK_REQUIRES(lock);
void add_record(const char* end) QK_REQUIRES(lock);

/** Writes a record. `write` gets what has the functions of a FieldWriter, twice. */
template <class Write>
void write_record(ChunkKind kind, RecordType type, Write write) QK_REQUIRES(lock) {
  assert_recorder_held();
  FieldCount count;
  write(count);
  char* const room = room_for_record(kind, 2 * kLongestVarint + count.size());
  if (room == nullptr) return;
  FieldWriter writer(room);
  writer.number(static_cast<std::uint64_t>(type));
  writer.number(count.size());
  write(writer);
  add_record(writer.end());
}

}  // namespace qk::mem::recording

#endif  // QKMEM_RECORDING_RECORDER_H_
