#ifndef QKMEM_LIFE_FAILING_END_H_
#define QKMEM_LIFE_FAILING_END_H_

#include "profile/report/verdict.h"

namespace qk::mem {

/**
 * If FINDINGS=FAIL is in force and the checks have found something, or LEAKS=FAIL and there are leaks,
 * the calling process ends with the code of that in place of 0, after all that a normal termination
 * does. For handlers of the exit.
 */
void fail_if_found(const profile::Verdict& verdict);

}  // namespace qk::mem

#endif  // QKMEM_LIFE_FAILING_END_H_
