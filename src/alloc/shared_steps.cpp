#include "alloc/shared_steps.h"

#include "alloc/unrecorded.h"

namespace qk::mem {

void report_failed_malloc(std::size_t size, const CallContext& context) {
  report_failure(context, "malloc of %zu at %s:%d failed", size, context.file(), context.line);
}

void record_allocation(qk_mem_handle& handle, void* memory, unsigned char kind,
                       const Contents& contents, const CallContext& context) {
  if (handle.track == 0) {
    note_unrecorded(handle, memory, contents.count * contents.size, context);
    return;
  }
  const auto record = record_pointer(handle, memory, kind_on(handle, kind), contents, context);
  if (!record) return;
  announce_recorded(lines::kAllocated, context, handle.id, *record,
                    traced_change(handle, gain_of(*record)));
  dump_control_blocks(*context.switches);
}

}  // namespace qk::mem
