// The end of the process.
#include "life/cleanup.h"

#include <optional>

#include "check/quarantine.h"
#include "check/report/findings.h"
#include "check/report/look.h"
#include "check/report/options.h"
#include "config/recording_switch.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/own_locations.h"
#include "core/registry.h"
#include "core/shutdown.h"
#include "core/switches.h"
#include "diag/event.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "handle/destroy.h"
#include "life/failing_end.h"
#include "life/fault.h"
#include "lost/inquiry.h"
#include "profile/report/report.h"
#include "profile/state.h"
#include "report/report.h"
#include "support/live_threads.h"
#include "support/no_cancellation.h"
#include "support/signal_names.h"

namespace qk::mem {
namespace {

constexpr char kRoutine[] = "qk_mem_cleanup";

bool wants_summary() { return qk::load(global_switches().summary) != 0; }

void log_end(int sig) {
  if (!wants_summary()) return;
  qk_mem_write_log("   %s:      Memory at program termination (%s)\n", kRoutine,
                   sig >= 1 ? qk_signal_desc(sig) : "normal termination");
}

/** Whether other threads may be using the handles. The clean-up then holds the registry's lock. */
enum class Others { kNone, kRun };

void delete_autofree_handle(qk_mem_handle& handle, Others others) {
  if (logs_events(global_switches())) {
    qk_mem_write_log("   %s:      Deleting autofree handle %d (%u ptrs for %zu bytes)\n", kRoutine,
                     handle.id, qk::load(handle.qty), qk::load(handle.amount));
  }
  if (others == Others::kNone) {
    qk_mem_idel_handle(handle.id, own::kAutofreeHandles.file, own::kAutofreeHandles.line);
    return;
  }
  const RegistryLock lock;
  abandon_handle(handle, own::kAutofreeHandles);
}

/** The last autofree handle below a number, or null. Other threads may still delete handles. */
qk_mem_handle* autofree_handle_below(std::int32_t hid) {
  const RegistryLock lock;
  const HandleSlots handles = handle_slots();
  for (std::int32_t i = hid - 2; i >= 0; --i) {
    qk_mem_handle* handle = handles.numbered(i + 1);
    if (handle != nullptr && handle->autofree != 0) return handle;
  }
  return nullptr;
}

/** Deletes the newest handle first, so that the overhead handle, number 1, is the last. */
void delete_autofree_handles(Others others) {
  retire_overhead_number();
  std::int32_t hid = handle_slots().count + 1;
  while (qk_mem_handle* handle = autofree_handle_below(hid)) {
    hid = handle->id;
    delete_autofree_handle(*handle, others);
  }
}

void announce_handle_array_gone() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (Qk_mem_handles_ptr.address == nullptr) return;
  const CallContext context(kRoutine, own::kHandleArrayReleased.file,
                            own::kHandleArrayReleased.line, global_switches());
  announce_released(lines::kHandleArrayGone, context, QK_MEM_OVERHEAD_HANDLE, event::kFree,
                    Qk_mem_handles_ptr, loss_of(Qk_mem_handles_ptr));
}

void release_registry() {
  const RegistryLock lock;
  if (Qk_mem_handles == nullptr) return;
  release_handle_array(retire_registry());
  announce_handle_array_gone();
}

/** While the handles are all there. Other threads can have a lock for ever at a signal. */
void look_at_the_end(check::Waiting waiting) {
  if (!check::was_ever_on()) return;
  check::look_at_all(waiting);
}

/**
 * What was written to where it should not be can be why the program has crashed. Nothing is waited
 * for: whoever holds a lock may never give it back.
 */
void look_at_a_fault() QK_UNCHECKED_LOCKING {
  if (!check::was_ever_on() || check::is_stopping() || !Qk_mem_mtx.try_lock()) return;
  check::look_at_all(check::Waiting::kForbidden);
  if (check::findings_so_far() != 0) check::write_report(check::Waiting::kForbidden);
  Qk_mem_mtx.unlock();
}

/** First what the fault itself shows, since a look at all blocks could meet another one. */
void tell_of_crash() {
  tell_of_fault();
  look_at_a_fault();
}

/** What the end of the process is made for, and what it has found. */
struct End {
  lost::Waiting waiting;
  std::optional<lost::Findings> findings;
};

bool wants_search() { return profile::was_ever_on() && profile::options_now().lost; }

void clean_up(Others others, End& end) {
  delete_autofree_handles(others);
  // Tools that look for leaks know blocks that only the quarantine refers to for such.
  if (others == Others::kNone) check::empty_quarantine();
  if (wants_search()) end.findings.emplace(lost::inquire(end.waiting));
  if (wants_summary()) dump_to_log();
  release_registry();
  if (logs_events(global_switches())) qk_mallinfo();
}

/** Other threads keep running. They wait for the registry meanwhile, and keep their memory. */
void clean_up_at_exit(End& end) {
  if (!qk::has_other_threads()) return clean_up(Others::kNone, end);
  const RegistryLock lock;
  clean_up(Others::kRun, end);
}

/**
 * Other threads keep running until the process ends, and some may hold a lock for ever. Threads
 * that need the registry wait for the end.
 */
void clean_up_for_signal(End& end) QK_UNCHECKED_LOCKING {
  const Others others = qk::has_other_threads() ? Others::kRun : Others::kNone;
  flush_log();
  Qk_mem_mtx.lock();
  stage_lines();
  clean_up(others, end);
  commit_lines();
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_cleanup(int sig) {
  using namespace qk::mem;
  const qk::NoCancellation no_cancellation;
  // A standard stream may have no buffer yet.
  if (FILE* log = qk::acquire(Qk_mem_log); sig >= 1 && log != nullptr) provide_log_buffer(log);
  log_end(sig);
  if (!qk_signal_safe(sig)) return tell_of_crash();
  const auto waiting = sig >= 1 ? check::Waiting::kForbidden : check::Waiting::kAllowed;
  look_at_the_end(waiting);
  end_profile(waiting);
  End end = {sig >= 1 ? lost::Waiting::kForbidden : lost::Waiting::kAllowed, {}};
  if (sig >= 1) {
    clean_up_for_signal(end);
  } else {
    clean_up_at_exit(end);
  }
  const profile::Verdict verdict = profile::write_report(
      profile::Occasion::kEnd, sig >= 1 ? profile::Naming::kAtASignal : profile::Naming::kComplete,
      end.findings ? &*end.findings : nullptr);
  check::write_report(waiting);
  if (sig < 1) fail_if_found(verdict);
  const RegistryLock lock;
  replace_log(nullptr);
  close_trace_file();
}
