#include "life/interruption.h"

#include <mutex>

#include "check/quarantine.h"
#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/log.h"
#include "recording/recorder.h"
#include "support/allocator_code.h"
#include "support/apart_memory.h"

namespace qk::mem {
namespace {

/**
 * Whether the thread holds a lock of the library. Looking at the handles takes the registry's lock;
 * if another thread has it, the answer is yes, which only costs another attempt.
 *
 * If not, the thread may still have released a lock and not yet have woken the next thread, which
 * may hold what the report needs. So the threads that sleep on each lock are woken.
 */
bool holds_a_lock() {
  if (Qk_mem_mtx.held() || holds_log() || Qk_mem_error.held()) return true;
  if (check::quarantine_lock.held() || qk::apart::lock.held()) return true;
  if (recording::lock.held()) return true;
  Qk_mem_mtx.wake_sleepers();
  wake_log_waiters();
  Qk_mem_error.wake_sleepers();
  check::quarantine_lock.wake_sleepers();
  qk::apart::lock.wake_sleepers();
  recording::lock.wake_sleepers();
  const std::unique_lock lock(Qk_mem_mtx, std::try_to_lock);
  if (!lock.owns_lock()) return true;
  assert_registry_held();
  bool held = false;
  for_each_handle([&held](const qk_mem_handle& handle) {
    if (handle.mtx == nullptr) return;
    if (handle.mtx->held()) held = true;
    handle.mtx->wake_sleepers();
  });
  return held;
}

}  // namespace

bool is_busy(const InterruptedThread& thread) { return holds_a_lock() || is_in_allocator(thread); }

}  // namespace qk::mem
