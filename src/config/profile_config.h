#ifndef QKMEM_CONFIG_PROFILE_CONFIG_H_
#define QKMEM_CONFIG_PROFILE_CONFIG_H_

namespace qk::mem {

/** Switches the profile on if QK_MEM_PROFILE says so. Once, before there are handles. */
void configure_profile_from_environment();

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_PROFILE_CONFIG_H_
