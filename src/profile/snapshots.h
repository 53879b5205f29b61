#ifndef QKMEM_PROFILE_SNAPSHOTS_H_
#define QKMEM_PROFILE_SNAPSHOTS_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "profile/site.h"
#include "profile/state.h"
#include "support/line.h"

/**
 * What all sites held at moments that the program has given a name. Sites are numbered and never
 * removed, so a snapshot is a row of figures. It reads them as reports do, without any handle's
 * lock: they are exact if no other thread uses the library meanwhile.
 */
namespace qk::mem::profile {

/** What a site holds, and what it has ever made. */
struct Figures {
  std::uint64_t live_bytes;
  std::uint64_t live_blocks;
  std::uint64_t made_bytes;
  std::uint64_t made_blocks;
};

[[nodiscard]] Figures figures_of(const Site& site);

/** It doesn't change once it is in the list of all, and stays while the growth lock is held. */
struct Snapshot {
  Snapshot* next;
  const char* name;
  const Figures* figures;  // of all sites, then of the two that each pool has
  std::uint64_t event;
  std::uint64_t time;    // in nanoseconds since the start of the clock
  std::uint64_t number;  // a later one has a larger number
  std::uint64_t resets;  // before it
  std::uint32_t site_count;
  std::uint32_t pool_count;

  /** All zero for a site, or a pool, that there was not. */
  [[nodiscard]] Figures of_site(std::uint32_t number) const;
  [[nodiscard]] Figures from_before(std::uint32_t pool) const;
  [[nodiscard]] Figures not_recorded(std::uint32_t pool) const;
};

/** Appends the name of a snapshot, which can be any bytes, as UTF-8 in one line between quotes. */
void put_snapshot_name(qk::Line& line, std::string_view name);

inline constexpr std::size_t kLongestSnapshotName = 200;

/**
 * Keeps what all sites hold now under a name, in place of an older snapshot of that name.
 *
 * @return 0; 5022 for a name that is empty or too long; 5061 if the profile was never on; 5012 if
 *         there is no memory. The older snapshot stays then, and a line on standard error says so.
 */
[[nodiscard]] std::int32_t take_snapshot(std::string_view name);

/** Forgets a snapshot, and takes back its memory. False if there is none of that name. */
bool drop_snapshot(std::string_view name);

/** A snapshot by its name; null if there is none. */
[[nodiscard]] const Snapshot* find_snapshot(std::string_view name) QK_REQUIRES(growth_lock);

/** The latest snapshot; the others follow by Snapshot::next. Null if there is none. */
[[nodiscard]] const Snapshot* newest_snapshot() QK_REQUIRES(growth_lock);

/** To be called before the figures of sites are counted anew. */
void count_reset();

/** How often that was called. */
[[nodiscard]] std::uint64_t resets_so_far();

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_SNAPSHOTS_H_
