#ifndef QKMEM_CHECK_UNUSED_H_
#define QKMEM_CHECK_UNUSED_H_

#include "check/damage.h"
#include "core/source_location.h"
#include "history/freed_blocks.h"

/**
 * Memory of block-managed handles that no piece has: while released memory is filled, it has the
 * filling, so that a write there shows when it is handed out or looked at. That holds for the memory
 * outside the marks of each block, and only on handles whose pool says so. All calls need the
 * handle's lock.
 */
namespace qk::mem::check {

/** Whether unused memory of a handle is filled. */
[[nodiscard]] inline bool keeps_unused_filled(const qk_mem_handle& handle) {
  return profile::is_watched(handle) && profile::pool_of(handle).fills_unused != 0;
}

/** Decides whether unused memory of a handle is filled from now on. Fills none that there is. */
void begin_unused(const qk_mem_handle& handle);

/** Memory is not used any more. */
void fill_unused(const qk_mem_handle& handle, void* begin, std::uint64_t bytes);

/** Memory will be used. Adds what was written there. */
void look_before_use(const qk_mem_handle& handle, const void* begin, std::uint64_t bytes,
                     DamageList& damages);

/** Looks at memory that is not used, and fills it anew. Returns whether it is as it was left. */
bool look_at_unused(const qk_mem_handle& handle, void* begin, std::uint64_t bytes,
                    DamageList& damages);

/** Notes who has cleared a handle, of whom damage will tell. */
void note_cleared(const qk_mem_handle& handle, const history::Release& by);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_UNUSED_H_
