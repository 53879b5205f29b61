#include "alloc/shared_steps.h"

#include "alloc/unrecorded.h"

namespace qk::mem {

void report_failed_malloc(std::size_t size, const CallContext& context) {
  report_failure(context, "malloc of %zu at %s:%d failed", size, context.file(), context.line);
}

void* record_allocation(qk_mem_handle& handle, check::NewBlock block, unsigned char kind,
                        const Contents& contents, const CallContext& context) {
  if (handle.track == 0) {
    return note_unrecorded(handle, block, contents.count * contents.size, context);
  }
  const auto record = record_block(handle, block, kind_on(handle, kind), contents, context);
  if (!record) return block.address;
  announce_recorded(lines::kAllocated, context, handle.id, *record,
                    traced_change(handle, gain_of(*record)));
  dump_control_blocks(*context.switches);
  return block.address;
}

}  // namespace qk::mem
