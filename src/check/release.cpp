#include "check/release.h"

#include "profile/events.h"

namespace qk::mem::check {
namespace {

void release_looked_at(const BlockFacts& facts, std::uint32_t pool) {
  char* const base = guard_in_front(facts.address, layout_of(facts.mark));
  if (keeps_released() && quarantine(facts, base, pool)) return;
  release_at_once(const_cast<void*>(facts.address), facts.bytes, base);
}

void release(BlockFacts facts, std::uint32_t pool, const history::Release& by) {
  facts.released = by;
  // A realloc counts when it has the new memory, everything else before it gives up the old.
  const bool is_coming = by.ending == history::Ending::kResized;
  facts.released_event = profile::events_so_far() + (is_coming ? 1 : 0);
  look_before_release(facts);
  release_looked_at(facts, pool);
}

}  // namespace

void look_before_release(const BlockFacts& facts) {
  const Layout layout = layout_of(facts.mark);
  if (has_whole_guards(facts.address, facts.bytes, layout)) return;
  if ((facts.mark.site & profile::Mark::kDamageTold) == 0) {
    DamageList damages;
    look_at_guards(facts, damages);
    tell_all(damages);
  }
  // What is told is not to be found again while the block is in quarantine.
  lay_guards(const_cast<void*>(facts.address), facts.bytes, layout);
}

void release(const qk_mem_handle& handle, const qk_mem_ptr& record, profile::Mark mark,
             const history::Release& by) {
  release(facts_of(handle, record, mark), profile::pool_of(handle).number, by);
}

void release(profile::Pool& pool, const profile::Unrecorded& memory, const history::Release& by) {
  release(facts_of(pool, memory), pool.number, by);
}

void release_whole(profile::Pool& pool, const BlockFacts& facts) {
  release_looked_at(facts, pool.number);
}

BlockFacts facts_of(const qk_mem_handle& handle, const qk_mem_ptr& record, profile::Mark mark) {
  return {.address = record.address,
          .bytes = bytes_of(record),
          .mark = mark,
          .hid = handle.id,
          .tag = handle.tag->name,
          .file = record.file,
          .line = record.line,
          .released = {},
          .released_event = 0};
}

BlockFacts facts_of(const profile::Pool& pool, const profile::Unrecorded& memory) {
  BlockFacts facts = {.address = memory.address,
                      .bytes = memory.bytes,
                      .mark = memory.mark,
                      .hid = pool.hid,
                      .tag = profile::tag_levels.at(pool.tag).name,
                      .file = nullptr,
                      .line = 0,
                      .released = {},
                      .released_event = 0};
  const std::uint32_t site = memory.mark.site_number();
  if (site != profile::kNoSite && site <= profile::kMaxSites) {
    facts.file = profile::sites.at(site).key.file;
    facts.line = profile::sites.at(site).key.line;
  }
  return facts;
}

}  // namespace qk::mem::check
