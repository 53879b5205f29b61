#ifndef QKMEM_CONFIG_RECORDING_SWITCH_H_
#define QKMEM_CONFIG_RECORDING_SWITCH_H_

#include <cstdint>

#include "check/report/look.h"
#include "core/registry.h"

namespace qk::mem {

/**
 * Records to the file of a pattern from now on, or not if it is null. What is recorded there already
 * goes on. Of more bytes than a limit that is not 0 the oldest events go.
 */
void switch_recording(const char* pattern, std::uint64_t limit) QK_REQUIRES(Qk_mem_mtx);

/** Ends the recording, and keeps the profile's figures as they are from now on: the process ends. */
void end_profile(check::Waiting waiting);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_RECORDING_SWITCH_H_
