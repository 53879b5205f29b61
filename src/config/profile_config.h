#ifndef QKMEM_CONFIG_PROFILE_CONFIG_H_
#define QKMEM_CONFIG_PROFILE_CONFIG_H_

namespace qk::mem {

/** Switches the profile on if QK_MEM_PROFILE says so. Once, before there are handles. */
void configure_profile_from_environment();

/**
 * Books new allocations again after profile::stop(). Records from meanwhile count as memory from
 * before.
 */
void resume_profile();

/**
 * Counts anew from now on: what was made, freed soon, and highest. What is live stays with its
 * sites.
 */
void reset_profile();

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_PROFILE_CONFIG_H_
