#ifndef QKMEM_DIAG_EVENT_H_
#define QKMEM_DIAG_EVENT_H_

#include <string_view>

#include "core/records.h"
#include "diag/call_context.h"
#include "diag/trace_file.h"
#include "support/shared_variable.h"

/**
 * The lines of events in the log and their rows in the trace file. An event of a pointer inserts a
 * record or releases one; the two have one shape each, and the tables below hold what differs
 * between routines.
 */
namespace qk::mem {

/** The formats of a routine's lines. */
struct EventLines {
  const char* plain;               // for records shown by their size
  const char* counted;             // for records shown as count/size
  std::string_view counted_kinds;  // the kinds with a count
};

namespace lines {
#pragma GCC visibility push(hidden)
// Records inserted.
extern const EventLines kAllocated;        // malloc, calloc, strdup, pointer arrays, overhead
extern const EventLines kRegistered;       // registration, blocks
extern const EventLines kHandleArrayMade;  // the handle array
// Records released.
extern const EventLines kFreed;             // free
extern const EventLines kDeregistered;      // deregistration
extern const EventLines kReleasedInWalk;    // deletion and clear of handles
extern const EventLines kTrackerReleased;   // trackers
extern const EventLines kHandleArrayFreed;  // the handle array, replaced by a larger one
extern const EventLines kHandleArrayGone;   // the handle array, when the program ends
#pragma GCC visibility pop
}  // namespace lines

/**
 * The line number in a record's row of the trace file: the 16 bits in the record, or the caller's
 * whole number.
 */
enum class RowLine { kOfRecord, kOfCaller };

/** Whether the log or the trace file shows the event. Asked before anything is formatted. */
[[nodiscard]] inline bool is_observed(const CallContext& context) {
  return logs_events(context) || qk::acquire(Qk_mem_db) != nullptr;
}

void write_recorded(const EventLines& lines, const CallContext& context, int hid,
                    const qk_mem_ptr& record, long change, RowLine located);
void write_released(const EventLines& lines, const CallContext& context, int hid,
                    unsigned char letter, const qk_mem_ptr& record, long change);

/**
 * Announces a record that was inserted: a line in the log under the switches of the call, and a row
 * in the trace file that shows `change` bytes.
 */
inline void announce_recorded(const EventLines& lines, const CallContext& context, int hid,
                              const qk_mem_ptr& record, long change,
                              RowLine located = RowLine::kOfRecord) {
  if (is_observed(context)) write_recorded(lines, context, hid, record, change, located);
}

/** Announces a record that was released, with the event letter. */
inline void announce_released(const EventLines& lines, const CallContext& context, int hid,
                              unsigned char letter, const qk_mem_ptr& record, long change) {
  if (is_observed(context)) write_released(lines, context, hid, letter, record, change);
}

/** Announces that a handle was deleted or cleared. */
void announce_handle_gone(const CallContext& context, const qk_mem_handle& handle,
                          unsigned char letter);

/**
 * Warns that an address has no record on a handle. It is passed as a number, because the memory may
 * already be freed.
 */
void warn_not_found(const CallContext& context, int hid, std::size_t address);

/** Warns that the handle array has no record on handle 1. */
void warn_handle_array_not_found(const CallContext& context, const void* array);

}  // namespace qk::mem

#endif  // QKMEM_DIAG_EVENT_H_
