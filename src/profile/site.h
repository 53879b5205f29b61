#ifndef QKMEM_PROFILE_SITE_H_
#define QKMEM_PROFILE_SITE_H_

#include <cstdint>

/**
 * A call site: memory of one handle that one place of the program has allocated, with one call
 * stack and under one label. Sites are never removed.
 */
namespace qk::mem::profile {

/** What a site is told apart by. */
struct SiteKey {
  const char* file;     // last component of the caller's file name, never copied
  std::uint32_t line;   // all of it, unlike that of a record
  std::uint32_t pool;   // number of a Pool
  std::uint32_t stack;  // number of a call stack; 0 for none
  std::uint32_t label;  // number of a label; 0 for none

  [[nodiscard]] bool operator==(const SiteKey&) const = default;
};

/** The label of a site that no call is to find. */
inline constexpr std::uint32_t kNoLabel = UINT32_MAX;

/**
 * The figures change under the lock of the handle, and are read without it. Both cache lines
 * change with each allocation; a free needs the second one too.
 */
struct alignas(64) Site {
  SiteKey key;
  std::uint32_t number;
  std::uint32_t next_of_pool;  // another site of the same pool; 0 for none
  std::uint64_t live_bytes;
  std::uint64_t live_blocks;
  std::uint64_t bytes_at_peak;  // when the whole was largest, if `epoch` is up to date
  std::uint64_t epoch;          // of the latest change, see Peak in profile/levels.h
  std::uint64_t highest_bytes;
  std::uint64_t made_bytes;
  std::uint64_t made_blocks;
  std::uint64_t above_largest;  // one more than the largest block; 0 before the first one
  std::uint64_t freed_soon;     // blocks that lived for kSoon events at most
  std::uint64_t lives;  // the events at which blocks were freed, less those of all allocations
  std::uint64_t first_event;  // an allocation's
  std::uint64_t last_event;
};
static_assert(sizeof(Site) == 128);

/** A block that lives no longer than this is short-lived, in events. */
inline constexpr std::uint32_t kSoon = 16;

/**
 * The numbers of sites have 24 bits, so that a mark has room for more. The last two belong to two
 * sites that each pool has.
 */
inline constexpr std::uint32_t kSiteBits = 24;
inline constexpr std::uint32_t kNoSite = 0;
inline constexpr std::uint32_t kMaxSites = (1U << kSiteBits) - 3;
inline constexpr std::uint32_t kFromBeforeSite = (1U << kSiteBits) - 2;
inline constexpr std::uint32_t kNotRecordedSite = (1U << kSiteBits) - 1;

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_SITE_H_
