#include "profile/options.h"

#include <algorithm>

#include "profile/pool.h"
#include "profile/state.h"
#include "support/mtx_lock.h"

namespace qk::mem::profile {
namespace {

constinit Options current;
constinit std::uint64_t least_history = 0;

}  // namespace

const Options& options() { return current; }

void set_options(const Options& now) {
  current = now;
  const qk::MtxLock lock(growth_lock);
  arena.set_limit(now.max_bytes);
  freed_blocks.set_limit(std::max(now.history, least_history));
}

void set_least_history(std::uint64_t blocks) { least_history = blocks; }

}  // namespace qk::mem::profile
