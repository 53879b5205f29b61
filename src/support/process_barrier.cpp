#include "support/process_barrier.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

#include "support/keep_errno.h"

namespace qk {
namespace {

bool membarrier(int command) noexcept { return syscall(SYS_membarrier, command, 0, 0) == 0; }

/** The child of a fork has to register anew. */
bool register_and_pass() noexcept {
  return membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) ||
         (membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) &&
          membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED));
}

/** Nothing limits how long a processor may keep a store to itself, but a microsecond is long. */
void outwait_store_buffers() noexcept {
  const timespec millisecond = {0, 1'000'000};
  nanosleep(&millisecond, nullptr);
}

}  // namespace

bool prepare_process_barrier() noexcept {
  if (process_barrier.load(std::memory_order_relaxed) == ProcessBarrier::kUntried) {
    pass_process_barrier();
  }
  return process_barrier_works();
}

void pass_process_barrier() noexcept {
  const KeepErrno keep;
  if (process_barrier_fails() || !register_and_pass()) {
    process_barrier.store(ProcessBarrier::kFails, std::memory_order_relaxed);
    return outwait_store_buffers();
  }
  // It stays as it is if another thread's attempt has failed meanwhile.
  ProcessBarrier untried = ProcessBarrier::kUntried;
  process_barrier.compare_exchange_strong(untried, ProcessBarrier::kWorks);
}

}  // namespace qk
