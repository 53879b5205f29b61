#include "core/tag_shares.h"

#include "core/handle_array.h"
#include "core/shutdown.h"

namespace qk::mem {
namespace {

/** The part of a handle's share that the tag doesn't have yet. From now on it counts as folded. */
qk_mem_tag_share take_new_part(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  const qk_mem_tag_share now = {qk::load(handle.tag_share.amount), qk::load(handle.tag_share.qty)};
  const qk_mem_tag_share before = handle.folded_share;
  handle.folded_share = now;
  return {now.amount - before.amount, now.qty - before.qty};
}

}  // namespace

void fold_tag_share(qk_mem_handle& handle) {
  assert_registry_held();
  const qk_mem_tag_share part = take_new_part(handle);
  qk::add(handle.tag->amount, part.amount);
  qk::add(handle.tag->qty, part.qty);
}

void fold_tag_shares() {
  assert_registry_held();
  for_each_handle(fold_tag_share);
  for_each_shown_survivor(fold_tag_share);
}

void take_from_tag(qk_mem_handle& handle) {
  assert_registry_held();
  const HandleLock lock(handle);
  fold_tag_share(handle);
  qk::subtract(handle.tag->amount, qk::load(handle.amount));
  qk::subtract(handle.tag->qty, qk::load(handle.qty));
}

void return_to_tag(qk_mem_handle& handle) {
  assert_registry_held();
  const HandleLock lock(handle);
  static_cast<void>(take_new_part(handle));
  qk::add(handle.tag->amount, qk::load(handle.amount));
  qk::add(handle.tag->qty, qk::load(handle.qty));
}

}  // namespace qk::mem
