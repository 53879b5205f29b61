#ifndef QKMEM_CHECK_RELEASE_H_
#define QKMEM_CHECK_RELEASE_H_

#include "check/damage.h"
#include "check/quarantine.h"
#include "history/freed_blocks.h"
#include "support/system_memory.h"

/** What becomes of a block of the system's allocator when the program releases it. */
namespace qk::mem::check {

/**
 * Releases a block that has no record any more, but for what its mark says. Its guards are looked
 * at first. While the checks are on it is filled and kept in quarantine, as they are set. No lock
 * may be held.
 */
void release(const qk_mem_handle& handle, const qk_mem_ptr& record, profile::Mark mark,
             const history::Release& by);

/** Looks at the guards of a block, and tells of damage that was not told yet. No lock may be held. */
void look_before_release(const BlockFacts& facts);

/** Whether released blocks are kept in quarantine. */
[[nodiscard]] inline bool keeps_released() { return qk::load(settings.quarantines) != 0; }

/** Gives a block to the allocator whose guards were looked at. */
[[gnu::always_inline]] inline void release_at_once(void* address, std::uint64_t bytes, void* base) {
  if (qk::load(settings.fills_released) != 0) std::memset(address, kReleasedFilling, bytes);
  user_memory::release(base);
}

/** The same, or keeps it in quarantine. */
void release_whole(profile::Pool& pool, const BlockFacts& facts);

/** What is known of a recorded block. */
[[nodiscard]] BlockFacts facts_of(const qk_mem_handle& handle, const qk_mem_ptr& record,
                                  profile::Mark mark);

/** The same of memory without a record. */
[[nodiscard]] BlockFacts facts_of(const profile::Pool& pool, const profile::Unrecorded& memory);

/** Releases memory without a record, as above. */
void release(profile::Pool& pool, const profile::Unrecorded& memory, const history::Release& by);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_RELEASE_H_
