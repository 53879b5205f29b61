// The end of the process.
#include "life/cleanup.h"

#include <mutex>

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
#include "report/report.h"
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

void delete_autofree_handle(const qk_mem_handle& handle) {
  if (logs_events(global_switches())) {
    qk_mem_write_log("   %s:      Deleting autofree handle %d (%u ptrs for %zu bytes)\n", kRoutine,
                     handle.id, qk::load(handle.qty), qk::load(handle.amount));
  }
  qk_mem_idel_handle(handle.id, own::kAutofreeHandles.file, own::kAutofreeHandles.line);
}

/** The last autofree handle below a number, or null. Other threads may still delete handles. */
const qk_mem_handle* autofree_handle_below(std::int32_t hid) {
  const RegistryLock lock;
  const HandleSlots handles = handle_slots();
  for (std::int32_t i = hid - 2; i >= 0; --i) {
    const qk_mem_handle* handle = handles.numbered(i + 1);
    if (handle != nullptr && handle->autofree != 0) return handle;
  }
  return nullptr;
}

/** Deletes the newest handle first, so that the overhead handle, number 1, is the last. */
void delete_autofree_handles() {
  retire_overhead_number();
  std::int32_t hid = handle_slots().count + 1;
  while (const qk_mem_handle* handle = autofree_handle_below(hid)) {
    hid = handle->id;
    std::unique_lock lock(Qk_mem_mtx, std::defer_lock);
    // Another thread may be recording a larger handle array on it. All other handles are deleted
    // without the lock, because a destructor run there may wait for other threads.
    if (hid == QK_MEM_OVERHEAD_HANDLE) lock.lock();
    delete_autofree_handle(*handle);
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

void clean_up() {
  delete_autofree_handles();
  if (wants_summary()) dump_to_log();
  release_registry();
  if (logs_events(global_switches())) qk_mallinfo();
}

/**
 * Other threads keep running until the process ends, and some may hold a lock for ever. Threads
 * that need the registry wait for the end. Memory that they may be using is kept.
 */
void clean_up_for_signal() QK_UNCHECKED_LOCKING {
  flush_log();
  Qk_mem_mtx.lock();
  keep_memory();
  stage_lines();
  clean_up();
  commit_lines();
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_cleanup(int sig) {
  using namespace qk::mem;
  // A standard stream may have no buffer yet.
  if (FILE* log = qk::acquire(Qk_mem_log); sig >= 1 && log != nullptr) provide_log_buffer(log);
  log_end(sig);
  if (!qk_signal_safe(sig)) return;
  if (sig >= 1) {
    clean_up_for_signal();
  } else {
    clean_up();
  }
  const RegistryLock lock;
  replace_log(nullptr);
  close_trace_file();
}
