#ifndef QKMEM_LOST_INQUIRY_H_
#define QKMEM_LOST_INQUIRY_H_

#include "lost/findings.h"

namespace qk::mem::lost {

/** Whether a search may wait for locks. */
enum class Waiting : std::uint8_t {
  kAllowed,
  kForbidden  // at a signal, other threads may hold them for ever
};

/** To be called when a search may be asked for later: at a signal it is too late. */
void prepare_inquiry();

/**
 * Searches the process for blocks that nothing refers to. The search is made in a copy of the
 * process, so that the program goes on meanwhile, but for this thread; other threads wait for the
 * time of making the copy. Takes the registry's lock and those of all handles for that time.
 *
 * @return what was found, or why there was no search.
 */
[[nodiscard]] Findings inquire(Waiting waiting);

}  // namespace qk::mem::lost

#endif  // QKMEM_LOST_INQUIRY_H_
