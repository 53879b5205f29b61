#include "alloc/entry.h"

#include "diag/log.h"
#include "diag/system_failure.h"

namespace qk::mem {

void report_failed_malloc(std::size_t size, const Site& site) {
  SystemFailure failure;
  if (reports(site)) {
    qk_mem_write_log("   %s: ERROR: malloc of %zu at %s:%d failed: %d %s\n", site.routine, size,
                     site.file(), site.line, failure.number(), failure.text());
  }
}

void* untracked_failure() {
  SystemFailure();
  return nullptr;
}

void record_allocation(qk_mem_handle& handle, void* memory, unsigned char kind,
                       const Contents& contents, const Site& site) {
  if (handle.track == 0) return;
  const auto record = record_pointer(handle, memory, kind_on(handle, kind), contents, site,
                                     Totals::kDataOfOrdinary);
  if (!record) return;
  announce_made(lines::kAllocated, site, handle.id, *record,
                traced_change(handle, gain_of(*record)));
  dump_control_blocks(*site.switches);
}

}  // namespace qk::mem
