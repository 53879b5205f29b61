#include "profile/pool.h"

#include <cstring>

#include "core/registry.h"
#include "support/mtx_lock.h"

namespace qk::mem::profile {

constinit qk::NumberedStore<Pool> pools;
constinit qk::NumberedStore<PoolsOfNumber> pools_by_number;
constinit qk::NumberedStore<TagLevel> tag_levels;
constinit Level whole = {};
constinit std::uint64_t peak_epoch = 0;
constinit std::uint32_t handles_left_out = 0;
constinit history::History freed_blocks;

namespace {

std::uint32_t find_or_add_tag(const char* name) QK_REQUIRES(growth_lock) {
  assert_growth_held();
  for (std::uint32_t number = 1; number <= tag_levels.count(); ++number) {
    if (std::strcmp(tag_levels.at(number).name, name) == 0) return number;
  }
  const std::uint32_t number = tag_levels.add(arena);
  if (number == 0) return 0;
  std::memcpy(tag_levels.at(number).name, name, sizeof TagLevel::name);
  tag_levels.publish_added();
  return number;
}

/** The entry of a handle's number, or null. Handles take the lowest free numbers. */
PoolsOfNumber* pools_of_number(std::int32_t hid) QK_REQUIRES(growth_lock) {
  assert_growth_held();
  const auto wanted = static_cast<std::uint32_t>(hid);
  while (pools_by_number.count() < wanted) {
    if (pools_by_number.add(arena) == 0) return nullptr;
    pools_by_number.publish_added();
  }
  return &pools_by_number.at(wanted);
}

Pool* find_pool(const PoolsOfNumber& of_number, std::uint32_t tag) {
  for (std::uint32_t number = of_number.newest; number != 0;
       number = pools.at(number).same_number) {
    if (pools.at(number).tag == tag) return &pools.at(number);
  }
  return nullptr;
}

Pool* add_pool(PoolsOfNumber& of_number, std::int32_t hid, std::uint32_t tag)
    QK_REQUIRES(growth_lock) {
  assert_growth_held();
  const std::uint32_t number = pools.add(arena);
  if (number == 0) return nullptr;
  Pool& pool = pools.at(number);
  pool.number = number;
  pool.hid = hid;
  pool.tag = tag;
  pool.tag_level = &tag_levels.at(tag).level;
  pool.same_number = of_number.newest;
  pool.from_before.key.pool = number;
  pool.from_before.number = kFromBeforeSite;
  pool.from_before.key.label = kNoLabel;
  pool.not_recorded.key.pool = number;
  pool.not_recorded.number = kNotRecordedSite;
  pool.recent_site = &pool.from_before;
  of_number.newest = number;
  pools.publish_added();
  return &pool;
}

Pool* find_or_add_pool(const qk_mem_handle& handle) {
  const qk::MtxLock lock(growth_lock);
  const std::uint32_t tag = find_or_add_tag(handle.tag->name);
  PoolsOfNumber* const of_number = pools_of_number(handle.id);
  if (tag == 0 || of_number == nullptr) return nullptr;
  Pool* const pool = find_pool(*of_number, tag);
  return pool != nullptr ? pool : add_pool(*of_number, handle.id, tag);
}

}  // namespace

void watch_handle(qk_mem_handle& handle) {
  Pool* const pool = find_or_add_pool(handle);
  if (pool == nullptr) {
    qk::add(handles_left_out, 1);
    return;
  }
  qk::store(pool->is_autofree, handle.autofree != 0 ? 1 : 0);
  qk::store(pool->is_alive, 1);
  qk::publish(handle.profile_pool, pool);
}

std::uint64_t live_bytes_of_tag(std::uint32_t tag) {
  std::uint64_t bytes = 0;
  for (std::uint32_t number = 1; number <= pools.count(); ++number) {
    const Pool& pool = pools.at(number);
    if (pool.tag == tag) bytes += qk::load(pool.level.live);
  }
  return bytes;
}

Level whole_now() {
  Level level = {0, qk::load(whole.highest), qk::load(whole.highest_event)};
  for (std::uint32_t number = 1; number <= pools.count(); ++number) {
    level.live += qk::load(pools.at(number).level.live);
  }
  if (level.live > level.highest) {
    level.highest = level.live;
    level.highest_event = events_so_far();
  }
  return level;
}

void reset_levels() {
  reset_level(whole);
  qk::store(whole.highest_event, events_so_far());
  qk::add(peak_epoch, 1);
  for (std::uint32_t number = 1; number <= tag_levels.count(); ++number) {
    reset_level(tag_levels.at(number).level);
  }
}

std::uint64_t peak_tolerance() {
  return qk::load(event_counter.has_seen_threads) != 0
             ? std::uint64_t{pools.count()} * kPassedOnInSteps
             : 0;
}

void remember_in_new_chunk(Pool& pool, const void* address, std::uint64_t bytes, Mark mark,
                           const history::Release& release) {
  {
    const qk::MtxLock lock(growth_lock);
    freed_blocks.open(pool.freed, pool.number, arena);
  }
  // Without a chunk, the next release asks for one again.
  static_cast<void>(pool.freed.add(address, bytes, mark.word(), release));
}

PoolSums sums_of(const Pool& pool) {
  PoolSums sums = {};
  for_each_site(pool, [&sums](const Site& site) {
    sums.live_blocks += qk::load(site.live_blocks);
    sums.made_bytes += qk::load(site.made_bytes);
    sums.made_blocks += qk::load(site.made_blocks);
  });
  return sums;
}

}  // namespace qk::mem::profile
