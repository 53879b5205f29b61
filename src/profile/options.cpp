#include "profile/options.h"

#include "profile/state.h"
#include "support/mtx_lock.h"

namespace qk::mem::profile {
namespace {

constinit Options current;

}  // namespace

const Options& options() { return current; }

void set_options(const Options& now) {
  current = now;
  const qk::MtxLock lock(growth_lock);
  arena.set_limit(now.max_bytes);
}

}  // namespace qk::mem::profile
