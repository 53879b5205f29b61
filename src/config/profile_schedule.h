#ifndef QKMEM_CONFIG_PROFILE_SCHEDULE_H_
#define QKMEM_CONFIG_PROFILE_SCHEDULE_H_

#include "profile/options.h"

namespace qk::mem {

/** Begins to write reports and to look at the control file as often as the options say. */
void schedule_profile(const profile::Options& options);

/** Ends that. */
void end_profile_schedule();

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_PROFILE_SCHEDULE_H_
