#include "examples/word_index/pools.h"

namespace word_index {
namespace {

qk::Handle require_handle(qk::Handle handle) {
  if (!handle) {
    std::fprintf(stderr, "word_index: no handle (code %d)\n", qk_mem_error());
    std::exit(EXIT_FAILURE);
  }
  return handle;
}

}  // namespace

Pools open_pools() {
  return {require_handle(qk::Handle("DATA", "BU")),
          require_handle(qk::Handle("BLOCKMGMT BLOCKSIZE=262144", "IX")),
          require_handle(qk::Handle("DATA", "RE"))};
}

void leave_open(Pools& pools) {
  // Deleting a handle releases what was forgotten on it, so that no report can show it.
  for (qk::Handle* handle : {&pools.results, &pools.index, &pools.buffers}) {
    static_cast<void>(handle->release());
  }
}

}  // namespace word_index
