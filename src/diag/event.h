#ifndef QKMEM_DIAG_EVENT_H_
#define QKMEM_DIAG_EVENT_H_

#include <string_view>

#include "core/records.h"
#include "diag/call_context.h"
#include "diag/trace_file.h"
#include "support/shared_variable.h"

/**
 * The lines that events leave in the log and the trace file. All events of pointers have one of two
 * shapes, a record made and a record released; what differs between routines is data.
 */
namespace qk::mem {

/** How a routine's lines look. */
struct EventLines {
  const char* plain;               // for records shown by their size
  const char* counted;             // for records shown as count/size
  std::string_view counted_kinds;  // which ones these are
};

namespace lines {
// Records made.
extern const EventLines kAllocated;        // malloc, calloc, strdup, pointer arrays, overhead
extern const EventLines kRegistered;       // registration, blocks
extern const EventLines kHandleArrayMade;  // the registry's array
// Records released.
extern const EventLines kFreed;             // free
extern const EventLines kDeregistered;      // deregistration
extern const EventLines kReleasedInWalk;    // deletion and clear of handles
extern const EventLines kTrackerReleased;   // trackers
extern const EventLines kHandleArrayFreed;  // the registry's array, replaced by a larger one
extern const EventLines kHandleArrayGone;   // the same when the program ends
}  // namespace lines

/**
 * Which line a record's row in the trace file shows: its own 16 bits, or the caller's whole one.
 */
enum class RowLine { kOfRecord, kOfCaller };

/** Whether anybody listens to the event of a context: asked before anything is prepared. */
[[nodiscard]] inline bool is_observed(const CallContext& context) {
  return traces(context) || qk::acquire(Qk_mem_db) != nullptr;
}

void write_recorded(const EventLines& lines, const CallContext& context, int hid,
                    const qk_mem_ptr& record, long change, RowLine located);
void write_released(const EventLines& lines, const CallContext& context, int hid,
                    unsigned char letter, const qk_mem_ptr& record, long change);

/**
 * Announces a record that was made: a line in the log under the context's switches, a row in the trace
 * file with `change` bytes.
 */
inline void announce_recorded(const EventLines& lines, const CallContext& context, int hid,
                              const qk_mem_ptr& record, long change,
                              RowLine located = RowLine::kOfRecord) {
  if (is_observed(context)) write_recorded(lines, context, hid, record, change, located);
}

/** Announces the release of a record under an event's letter. */
inline void announce_released(const EventLines& lines, const CallContext& context, int hid,
                              unsigned char letter, const qk_mem_ptr& record, long change) {
  if (is_observed(context)) write_released(lines, context, hid, letter, record, change);
}

/** Announces that a handle was deleted or cleared. */
void announce_handle_gone(const CallContext& context, const qk_mem_handle& handle,
                          unsigned char letter);

/** Warns that an address has no record on a handle. A number, since the memory may be freed by now. */
void warn_not_found(const CallContext& context, int hid, std::size_t address);

/** Warns that the handle array has no record on handle 1. */
void warn_handle_array_not_found(const CallContext& context, const void* array);

}  // namespace qk::mem

#endif  // QKMEM_DIAG_EVENT_H_
