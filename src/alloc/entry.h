#ifndef QKMEM_ALLOC_ENTRY_H_
#define QKMEM_ALLOC_ENTRY_H_

#include <cstddef>

#include "alloc/quick.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "table/lookup.h"
#include "table/pointer_table.h"

/** The steps that the entry points of the allocation interface share. */
namespace qk::mem {

/** Whether calls on a handle are calls of the system's allocator and nothing else. */
[[nodiscard]] inline bool bypasses_tracking(int hid) {
  return hid == QK_MEM_DATA_HANDLE && !debugging();
}

/** The same, asked before anything else; never true before the start-up is over. */
[[nodiscard]] inline bool bypasses_at_once(int hid) {
  return hid == QK_MEM_DATA_HANDLE && is_started() && !debugging();
}

/** Leaves the code of a malloc that just failed and reports it. */
[[gnu::cold]] void report_failed_malloc(std::size_t size, const Site& site);

/** Leaves the code of an allocation that just failed, and no line. The result is null. */
[[gnu::cold]] void* untracked_failure();

/** Passes on what the system's allocator gave. */
[[nodiscard]] inline void* untracked(void* memory) {
  return memory != nullptr ? memory : untracked_failure();
}

/** Whether an alignment is one that block management supports, or doesn't matter. */
[[nodiscard]] constexpr bool is_supported_alignment(const qk_mem_handle& handle, int alignment) {
  return !is_blockmgmt(handle) || alignment == 1 || alignment == 2 || alignment == 4 ||
         alignment == 8 || alignment == 16;
}

/** Memory that was allocated on a handle is recorded, where the handle does so, and announced. */
void record_allocation(qk_mem_handle& handle, void* memory, unsigned char kind,
                       const Contents& contents, const Site& site);

/** The change that the trace file shows: on block-managed handles only blocks move memory. */
[[nodiscard]] constexpr long traced_change(const qk_mem_handle& handle, long change) {
  return is_blockmgmt(handle) ? 0 : change;
}

/** The letter of a free. */
[[nodiscard]] constexpr unsigned char free_letter(const qk_mem_handle& handle) {
  return is_blockmgmt(handle) ? event::kFreePiece : event::kFree;
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_ENTRY_H_
