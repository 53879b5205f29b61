#include "life/fork.h"

#include <pthread.h>

#include "check/quarantine.h"
#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "profile/due.h"
#include "profile/events.h"
#include "profile/recorded.h"
#include "profile/report/report.h"
#include "profile/state.h"
#include "support/apart_memory.h"

namespace qk::mem {
namespace {

/** Takes all locks, in their order, so that nothing is half changed when the process is copied. */
void before_fork() QK_UNCHECKED_LOCKING {
  Qk_mem_mtx.lock();
  for_each_handle(lock_handle);
  profile::report_lock.lock();
  hold_log();
  Qk_mem_error.lock();
  check::quarantine_lock.lock();
  profile::growth_lock.lock();
  recording::lock.lock();
  qk::apart::lock.lock();
  flush_trace_file();
}

void after_fork() QK_UNCHECKED_LOCKING {
  qk::apart::lock.unlock();
  recording::lock.unlock();
  profile::growth_lock.unlock();
  check::quarantine_lock.unlock();
  Qk_mem_error.unlock();
  let_log_go();
  profile::report_lock.unlock();
  for_each_handle(unlock_handle);
  Qk_mem_mtx.unlock();
}

void forget_waiters_of(const qk_mem_handle& handle) {
  if (handle.mtx != nullptr) handle.mtx->forget_waiters();
}

/** The child's only thread is a copy of the one that took the locks. */
void after_fork_in_child() QK_UNCHECKED_LOCKING {
  qk::apart::lock.forget_waiters();
  recording::lock.forget_waiters();
  profile::leave_record_to_parent();
  profile::growth_lock.forget_waiters();
  check::quarantine_lock.forget_waiters();
  profile::report_lock.forget_waiters();
  profile::forget_clock_reader();
  profile::forget_due_worker();
  Qk_mem_error.forget_waiters();
  forget_log_waiters();
  for_each_handle(forget_waiters_of);
  Qk_mem_mtx.forget_waiters();
  after_fork();
}

}  // namespace

void watch_forks() { pthread_atfork(before_fork, after_fork, after_fork_in_child); }

}  // namespace qk::mem
