#include "check/unused.h"

#include "core/registry.h"
#include "profile/events.h"

namespace qk::mem::check {
namespace {

BlockFacts facts_of_unused(const qk_mem_handle& handle, const void* begin, std::uint64_t bytes) {
  const profile::Pool& pool = profile::pool_of(handle);
  return {.address = begin,
          .bytes = bytes,
          .mark = {},
          .hid = handle.id,
          .tag = handle.tag->name,
          .file = nullptr,
          .line = 0,
          .released = pool.cleared,
          .released_event = pool.cleared_event};
}

}  // namespace

void begin_unused(const qk_mem_handle& handle) {
  if (!profile::is_watched(handle)) return;
  profile::Pool& pool = profile::pool_of(handle);
  pool.fills_unused = qk::load(settings.fills_unused);
  pool.cleared = {};
}

void fill_unused(const qk_mem_handle& handle, void* begin, std::uint64_t bytes) {
  assert_held(handle);
  if (keeps_unused_filled(handle)) std::memset(begin, kReleasedFilling, bytes);
}

void look_before_use(const qk_mem_handle& handle, const void* begin, std::uint64_t bytes,
                     DamageList& damages) {
  assert_held(handle);
  if (!keeps_unused_filled(handle)) return;
  const auto where = differing_from_filling(begin, bytes, kReleasedFilling);
  if (!where) return;
  damages.add(
      Damage::of(DamageKind::kUnused, facts_of_unused(handle, begin, bytes), begin, *where));
}

bool look_at_unused(const qk_mem_handle& handle, void* begin, std::uint64_t bytes,
                    DamageList& damages) {
  assert_held(handle);
  if (!keeps_unused_filled(handle) || is_filled(begin, bytes, kReleasedFilling)) return true;
  if (damages.is_full()) return false;
  look_before_use(handle, begin, bytes, damages);
  fill_unused(handle, begin, bytes);
  return false;
}

void note_cleared(const qk_mem_handle& handle, const history::Release& by) {
  assert_held(handle);
  profile::Pool& pool = profile::pool_of(handle);
  pool.cleared = by;
  pool.cleared_event = profile::events_so_far();
}

}  // namespace qk::mem::check
