#include "profile/options.h"

#include "profile/pool.h"
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
  freed_blocks.set_limit(now.history);
}

}  // namespace qk::mem::profile
