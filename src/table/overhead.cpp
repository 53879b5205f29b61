#include "table/overhead.h"

#include "core/kinds.h"
#include "core/registry.h"
#include "diag/event.h"
#include "table/pointer_table.h"

namespace qk::mem {
namespace {

/** Records bookkeeping; the caller's switches rule its failure, the global ones its trace line. */
bool record_overhead(qk_mem_handle& handle, void* address, unsigned char kind, std::size_t size,
                     const Site& site, const char* routine, Located located) {
  const auto record = record_pointer(handle, address, kind, {1, size}, site, Totals::kOverhead);
  if (!record) return false;
  announce_made(lines::kAllocated, site.as(routine, global_switches()), handle.id, *record,
                gain_of(*record), located);
  return true;
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

constexpr char kHandleMemory[] = "qk_mem_handle_memory";

}  // namespace

Site handle_memory_site(const Site& site) { return site.as(kHandleMemory, global_switches()); }

bool record_handle_memory(qk_mem_handle& handle, void* memory, std::size_t size, const Site& site) {
  return record_overhead(handle, memory, kind::kHandleMemory, size, site, kHandleMemory,
                         Located::kByRecord);
}

}  // namespace qk::mem

extern "C" void qk_mem_tracker(qk_mem_handle* handle, qk::MemTracker* tracker, unsigned char kind,
                               const char* file, int line, qk_mem_debug* entry) {
  using namespace qk::mem;
  static constexpr char routine[] = "qk_mem_tracker";
  const Site site(routine, file, line, *entry);
  if (is_language_made(kind)) {
    record_overhead(*handle, tracker, kind::kTracker, tracker->size(), site, routine,
                    Located::kByCaller);
  } else if (kind == event::kObjectReleased || kind == event::kArrayReleased) {
    release_tracker(*handle, tracker, site);
  }
}

extern "C" void qk_mem_handle_memory(qk_mem_handle* handle, void* ptr, std::size_t size,
                                     unsigned char /*kind*/, const char* file, int line,
                                     qk_mem_debug* entry) {
  using namespace qk::mem;
  record_handle_memory(*handle, ptr, size, Site(kHandleMemory, file, line, *entry));
}
