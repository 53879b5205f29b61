// The library's own memory in the accounting: trackers, and what a handle consists of.
#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"
#include "table/pointer_table.h"

namespace qk::mem {
namespace {

/** The caller's switches rule the failure to record, the global ones the trace line. */
void record_overhead(qk_mem_handle& handle, void* address, unsigned char kind, std::size_t size,
                     const Site& site, Located located) {
  const auto record = record_pointer(handle, address, kind, {1, size}, site, Totals::kOverhead);
  if (!record) return;
  announce_made(lines::kAllocated, site.as(site.routine, global_switches()), handle.id, *record,
                gain_of(*record), located);
}

void release_tracker(qk_mem_handle& handle, const void* tracker, const Site& site) {
  const auto taken = take_pointer(handle, tracker, Totals::kOverhead);
  if (!taken) {
    if (reports(site)) warn_not_found(site, handle.id, shown(tracker));
    return;
  }
  next_seq();
  announce_released(lines::kTrackerReleased, site.as(site.routine, global_switches()), handle.id,
                    event::kObjectReleased, taken->record, release_of(taken->record));
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_tracker(qk_mem_handle* handle, qk::MemTracker* tracker, unsigned char kind,
                               const char* file, int line, qk_mem_debug* entry) {
  using namespace qk::mem;
  const Site site("qk_mem_tracker", file, line, *entry);
  if (is_language_made(kind)) {
    record_overhead(*handle, tracker, kind::kTracker, tracker->size(), site, Located::kByCaller);
  } else if (kind == event::kObjectReleased || kind == event::kArrayReleased) {
    release_tracker(*handle, tracker, site);
  }
}

extern "C" void qk_mem_handle_memory(qk_mem_handle* handle, void* ptr, std::size_t size,
                                     unsigned char /*kind*/, const char* file, int line,
                                     qk_mem_debug* entry) {
  using namespace qk::mem;
  record_overhead(*handle, ptr, kind::kHandleMemory, size,
                  Site("qk_mem_handle_memory", file, line, *entry), Located::kByRecord);
}
