#ifndef QKMEM_CORE_TAG_SHARES_H_
#define QKMEM_CORE_TAG_SHARES_H_

#include <cstdint>

#include "core/records.h"
#include "core/registry.h"
#include "support/shared_variable.h"

/**
 * How the sums of a tag change. With several threads each handle of the tag has a share, which only
 * its own calls change, under its own lock if it has one: an atomic change of the tag would cost
 * each call more than all its other accounting. Whoever reads a tag's sums first folds the shares
 * in.
 */
namespace qk::mem {

/** The sums by which a handle's calls change its tag. Under the handle's lock. */
struct TagSums {
  std::uint64_t& amount;
  std::uint32_t& qty;
};

[[nodiscard, gnu::always_inline]] inline TagSums tag_sums_of(qk_mem_handle& handle,
                                                             bool single_threaded) {
  assert_held(handle);
  if (!single_threaded) return {handle.tag_share.amount, handle.tag_share.qty};
  return {handle.tag->amount, handle.tag->qty};
}

/**
 * Adds to the tag what has become of one handle's share since the last time. The share itself is
 * left alone, since its handle may be changing it. Needs the registry's lock.
 */
void fold_tag_share(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

/**
 * Does that for all handles that reports show. To be called before a tag's sums are read. Needs the
 * registry's lock.
 */
void fold_tag_shares() QK_REQUIRES(Qk_mem_mtx);

/** Takes the sums of a handle out of its tag, which no longer follows it. */
void take_from_tag(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

/** Undoes take_from_tag(), with the sums as they are now. */
void return_to_tag(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_CORE_TAG_SHARES_H_
