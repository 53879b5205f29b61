// Records of the library's own memory: trackers, and what a handle consists of.
#include "accounting/recording.h"
#include "accounting/walks.h"
#include "core/registry.h"
#include "diag/event.h"

namespace qk::mem {
namespace {

/** A failure follows the caller's switches, the trace line the global ones. */
void record_overhead(qk_mem_handle& handle, void* address, unsigned char kind, std::size_t size,
                     const CallContext& context, RowLine line) {
  const auto record = record_pointer(handle, address, kind, {1, size}, context);
  if (!record) return;
  announce_recorded(lines::kAllocated, context.as(context.routine, global_switches()), handle.id,
                    *record, gain_of(*record), line);
}

void release_tracker(qk_mem_handle& handle, const void* tracker, const CallContext& context) {
  const auto removed = remove_pointer(handle, tracker, Removal::kOfTracker);
  if (!removed) {
    // A walk can have dropped the tracker's record before an owner deregisters the object.
    if (logs_errors(context) && !is_walked(handle))
      warn_not_found(context, handle.id, as_number(tracker));
    return;
  }
  next_seq();
  announce_released(lines::kTrackerReleased, context.as(context.routine, global_switches()),
                    handle.id, event::kObjectReleased, removed->record, loss_of(removed->record));
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_tracker(qk_mem_handle* handle, qk::MemTracker* tracker, unsigned char kind,
                               const char* file, int line, qk_mem_debug* entry) {
  using namespace qk::mem;
  const CallContext context("qk_mem_tracker", file, line, *entry);
  if (is_language_made(kind)) {
    record_overhead(*handle, tracker, kind::kTracker, tracker->size(), context, RowLine::kOfCaller);
  } else if (kind == event::kObjectReleased || kind == event::kArrayReleased) {
    release_tracker(*handle, tracker, context);
  }
}

extern "C" void qk_mem_handle_memory(qk_mem_handle* handle, void* ptr, std::size_t size,
                                     unsigned char /*kind*/, const char* file, int line,
                                     qk_mem_debug* entry) {
  using namespace qk::mem;
  record_overhead(*handle, ptr, kind::kHandleMemory, size,
                  CallContext("qk_mem_handle_memory", file, line, *entry), RowLine::kOfRecord);
}
