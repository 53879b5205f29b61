#ifndef QKMEM_TOOLS_VIEWS_CALLS_H_
#define QKMEM_TOOLS_VIEWS_CALLS_H_

#include <vector>

#include "ledger/ledger.h"

namespace qk::command {

/**
 * The calls that lead to a site, from the function that holds it outwards. Empty if they are not
 * known, or have no names yet.
 */
[[nodiscard]] std::vector<Frame> calls_to(const Ledger& ledger, const SiteKey& site);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_CALLS_H_
