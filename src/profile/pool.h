#ifndef QKMEM_PROFILE_POOL_H_
#define QKMEM_PROFILE_POOL_H_

#include <cstdint>

#include "core/records.h"
#include "history/freed_blocks.h"
#include "profile/address_table.h"
#include "profile/events.h"
#include "profile/levels.h"
#include "profile/marks.h"
#include "profile/site.h"
#include "profile/site_table.h"
#include "profile/state.h"
#include "support/numbered_store.h"

/**
 * What the profile knows of handles, tags and the whole. A pool stands for the handles of one
 * number and tag, one after the other: at most one of them is alive.
 */
namespace qk::mem::profile {

/** All handles of one tag. */
struct TagLevel {
  char name[8];
  Level level;
};

/** Its figures change under the lock of its handle, and are read without it. */
struct Pool {
  // What each event needs comes first, in few lines of the processor's cache.
  Site* recent_site;  // that was looked for most recently; `from_before` at first
  Level level;
  Level* tag_level;
  std::int64_t not_passed_on;  // bytes that tag and whole don't have yet
  EventRange numbers;
  history::Writer freed;
  std::uint32_t number;
  std::int32_t hid;
  Marks marks[kArraysPerHandle];
  std::uint32_t tag;          // number of a TagLevel
  std::uint32_t same_number;  // another pool of the handle's number; 0 for none
  std::uint32_t first_site;   // the others follow by Site::next_of_pool
  std::uint8_t is_autofree;
  std::uint8_t is_alive;
  std::uint8_t fills_unused;  // memory that no piece has is filled, see check/unused.h
  AddressTable unrecorded;
  Site from_before;          // memory that was live when the profile was switched on
  Site not_recorded;         // memory that did not fit into the profile's own
  std::uint32_t era;         // begins anew whenever the handle is cleared
  history::Release cleared;  // the last time, while the handle is checked
  std::uint64_t cleared_event;
  std::uint64_t recorded_blocks;  // that were made since a recording began
  std::uint64_t recorded_bytes;
};

/** What all sites of a pool have together, beside its level. */
struct PoolSums {
  std::uint64_t live_blocks;
  std::uint64_t made_bytes;
  std::uint64_t made_blocks;
};

/** The pools of a handle's number. */
struct PoolsOfNumber {
  std::uint32_t newest;  // the others follow by Pool::same_number
};

#pragma GCC visibility push(hidden)
extern qk::NumberedStore<Pool> pools;
extern qk::NumberedStore<PoolsOfNumber> pools_by_number;
extern qk::NumberedStore<TagLevel> tag_levels;
extern Level whole;

/** The blocks of all pools that were released last. It changes under the growth lock. */
extern history::History freed_blocks;
#pragma GCC visibility pop

/** Remembers a block that is released. The caller holds the lock of the pool's handle. */
[[gnu::noinline]] void remember_in_new_chunk(Pool& pool, const void* address, std::uint64_t bytes,
                                             Mark mark, const history::Release& release);
[[gnu::always_inline]] inline void remember(Pool& pool, const void* address, std::uint64_t bytes,
                                            Mark mark, const history::Release& release) {
  if (!pool.freed.add(address, bytes, mark.word(), release)) [[unlikely]]
    remember_in_new_chunk(pool, address, bytes, mark, release);
}

/**
 * Counts the times at which the whole was largest. A site that changes notes first what it held, if
 * that was before the latest of them: so the division of the peak needs no copy of all sites.
 */
[[gnu::visibility("hidden")]] extern std::uint64_t peak_epoch;

/** What a handle can hold back of its bytes while there are several threads. */
inline constexpr std::int64_t kPassedOnInSteps = 4096;
[[nodiscard]] constexpr bool is_held_back(std::int64_t bytes) {
  return bytes > -kPassedOnInSteps && bytes < kPassedOnInSteps;
}

/** The whole with what handles have not passed on, and the highest level as far as it is known. */
[[nodiscard]] Level whole_now();

/** Takes the present levels of the whole and the tags for the highest. */
void reset_levels();

/** Bytes by which the highest level can differ from what it was. */
[[nodiscard]] std::uint64_t peak_tolerance();

/** Handles for which there was no memory. */
[[gnu::visibility("hidden")]] extern std::uint32_t handles_left_out;

/**
 * Lets the profile watch a handle from now on, unless there is no memory for its pool. No other
 * thread may be using the handle, or the caller holds its lock.
 */
void watch_handle(qk_mem_handle& handle);

/** Bytes that the handles of a tag hold. */
[[nodiscard]] std::uint64_t live_bytes_of_tag(std::uint32_t tag);

/** Whether the profile watches a handle. */
[[nodiscard]] inline bool is_watched(const qk_mem_handle& handle) {
  return qk::acquire(handle.profile_pool) != nullptr;
}

[[nodiscard]] inline Pool& pool_of(const qk_mem_handle& handle) {
  return *qk::acquire(handle.profile_pool);
}

/** The marks of one of a watched handle's arrays. */
[[nodiscard]] inline Marks& marks_of(const qk_mem_handle& handle, Pool& pool,
                                     const qk_mem_ptr_array& array) {
  const auto* const first = reinterpret_cast<const char*>(handle.ptrs);
  return reinterpret_cast<Marks&>(
      reinterpret_cast<char*>(pool.marks)[reinterpret_cast<const char*>(&array) - first]);
}

/** The site of a pool by its number, which is not kNoSite. */
[[nodiscard]] inline Site& site_in(Pool& pool, std::uint32_t number) {
  if (number <= kMaxSites) [[likely]]
    return sites.at(number);
  return number == kFromBeforeSite ? pool.from_before : pool.not_recorded;
}

/** Calls `visit` with all sites of a pool. */
template <class PoolOrConst, class Visit>
void for_each_site(PoolOrConst& pool, Visit visit) {
  visit(pool.from_before);
  visit(pool.not_recorded);
  for (std::uint32_t number = qk::acquire(pool.first_site); number != kNoSite;
       number = sites.at(number).next_of_pool) {
    visit(sites.at(number));
  }
}

[[nodiscard]] PoolSums sums_of(const Pool& pool);

/** Bytes that a site held when the whole was largest. */
[[nodiscard]] inline std::uint64_t bytes_at_peak(const Site& site) {
  return qk::load(site.epoch) == qk::load(peak_epoch) ? qk::load(site.bytes_at_peak)
                                                      : qk::load(site.live_bytes);
}

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_POOL_H_
