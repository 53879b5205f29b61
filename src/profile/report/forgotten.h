#ifndef QKMEM_PROFILE_REPORT_FORGOTTEN_H_
#define QKMEM_PROFILE_REPORT_FORGOTTEN_H_

#include "profile/pool.h"
#include "support/line.h"

/** What a handle still holds when its owner deletes it. */
namespace qk::mem::profile {

/** Whether the program has left memory on the handle of a pool. */
[[nodiscard]] bool holds_memory(const Pool& pool);

/** Appends how much it is, and the lines that have allocated most of it. */
void put_forgotten(qk::Line& line, const Pool& pool);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_FORGOTTEN_H_
