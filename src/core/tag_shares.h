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

/** Adds to the bytes of a handle's tag; a negated number subtracts. Needs the handle's lock. */
inline void add_to_tag_amount(qk_mem_handle& handle, std::uint64_t bytes, bool single_threaded) {
  assert_held(handle);
  qk::bump(single_threaded ? handle.tag->amount : handle.tag_share.amount, bytes);
}

/** The same for the number of records. */
inline void add_to_tag_qty(qk_mem_handle& handle, std::uint32_t records, bool single_threaded) {
  assert_held(handle);
  qk::bump(single_threaded ? handle.tag->qty : handle.tag_share.qty, records);
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
