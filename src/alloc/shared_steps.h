#ifndef QKMEM_ALLOC_SHARED_STEPS_H_
#define QKMEM_ALLOC_SHARED_STEPS_H_

#include <cstddef>

#include "accounting/handle_lookup.h"
#include "accounting/recording.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/failure.h"

/** Steps that several entry points of the allocation interface have in common. */
namespace qk::mem {

/** Whether a call on a handle is a call of the system's allocator and nothing else. */
[[nodiscard]] inline bool bypasses_tracking(int hid) {
  return hid == QK_MEM_DATA_HANDLE && !debugging();
}

/** Returns `memory`, and sets the error code if it is null. */
[[nodiscard]] inline void* untracked(void* memory) {
  if (memory == nullptr) [[unlikely]]
    set_error_from_errno();
  return memory;
}

/** Whether block management supports an alignment. On other handles it does not matter. */
[[nodiscard]] constexpr bool is_supported_alignment(const qk_mem_handle& handle, int alignment) {
  return !is_blockmgmt(handle) || alignment == 1 || alignment == 2 || alignment == 4 ||
         alignment == 8 || alignment == 16;
}

/** Sets the error code of a malloc that just failed, and reports it. */
[[gnu::cold]] void report_failed_malloc(std::size_t size, const CallContext& context);

/**
 * Records and announces memory that was allocated on a handle, if the handle keeps records. Returns
 * what the program gets.
 */
[[nodiscard]] void* record_allocation(qk_mem_handle& handle, check::NewBlock block,
                                      unsigned char kind, const Contents& contents,
                                      const CallContext& context);

/** The change that the trace file shows: on block-managed handles only blocks change anything. */
[[nodiscard]] constexpr long traced_change(const qk_mem_handle& handle, long change) {
  return is_blockmgmt(handle) ? 0 : change;
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_SHARED_STEPS_H_
