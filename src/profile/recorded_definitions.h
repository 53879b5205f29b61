#ifndef QKMEM_PROFILE_RECORDED_DEFINITIONS_H_
#define QKMEM_PROFILE_RECORDED_DEFINITIONS_H_

#include <cstdint>

#include "profile/pool.h"
#include "recording/recorder.h"
#include "support/shared_variable.h"

/** What the numbers in the events of a recording stand for, which it says before the first of them. */
namespace qk::mem::profile {

/** How many are defined. They grow under recording::lock, and each event asks for them. */
[[gnu::visibility("hidden")]] extern std::uint32_t defined_sites;
[[gnu::visibility("hidden")]] extern std::uint32_t defined_pools;

/** Defines all that is not defined yet. */
void define_all() QK_REQUIRES(recording::lock);

/** The same, under the lock. */
[[gnu::cold]] void define_new();

/** To be called when another recording begins. */
void forget_definitions() QK_REQUIRES(recording::lock);

/** Those that each pool has are none in a recording. */
[[nodiscard]] inline std::uint32_t recorded_site(std::uint32_t site) {
  return site > kMaxSites ? 0 : site;
}

/** To be called before a site's number, or that of a pool, goes into an event. */
inline void see_that_is_defined(std::uint32_t site, std::uint32_t pool) {
  if (recorded_site(site) > qk::load(defined_sites) || pool > qk::load(defined_pools)) [[unlikely]]
    define_new();
}

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_RECORDED_DEFINITIONS_H_
