// Start-up, at the first call.
#include "config/check_config.h"
#include "config/debug_config.h"
#include "config/profile_config.h"
#include "core/handle_array.h"
#include "core/own_locations.h"
#include "core/registry.h"
#include "core/roads.h"
#include "core/upcalls.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "life/cleanup.h"
#include "life/fork.h"
#include "life/interruption.h"
#include "qkmem/version.h"
#include "support/allocator_code.h"
#include "support/ending_signals.h"
#include "support/exit_handlers.h"
#include "support/mtx.h"

// A note that leads debuggers to life/debugger_table.cpp, by the distance to its table, also where
// there are no symbols. It also brings that file into programs that take the library from an
// archive.
asm(R"(
  .pushsection .note.qkmem, "a", %note
  .balign 4
  .4byte 6, 4, 2
  .asciz "qkmem"
  .balign 4
  .4byte qk_mem_table_for_debuggers - .
  .popsection
)");

// Another one has the version, for those who look at the file.
asm(R"(
  .pushsection .note.qkmem, "a", %note
  .balign 4
  .4byte 6, 2f - 1f, 3
  .asciz "qkmem"
  .balign 4
1:
  .asciz ")" QK_MEM_VERSION R"("
2:
  .balign 4
  .popsection
)");

namespace qk::mem {

constinit std::int32_t start_up_is_over = 0;

namespace {

constexpr char kRoutine[] = "qk_mem_init";

/** The size of a block's header: a multiple of 16, so that the data area is aligned. */
void settle_blocksize() {
  constexpr std::uint64_t kHeaderBytes = 32;
  static_assert(kHeaderBytes >= sizeof(qk_mem_block) && kHeaderBytes % 16 == 0);
  Qk_mem_blocksize = kHeaderBytes;
}

void log_configuration(qk::Status& status) {
  if (qk::load(global_switches().debug) == 0) return;
  qk_mem_write_log("   %s: opts:   %s\n", kRoutine, qk::load(Qk_mem_opts) != 0 ? "HEAPSIZE " : "");
  char settings[QK_MEM_SETTINGS_SIZE];
  qk_mem_debug_settings(settings, &status);
  if (settings[0] != '\0') qk_mem_write_log("   %s: debug:  %s\n", kRoutine, settings);
  qk_mallinfo();
}

bool register_exit_handler(qk::Status& status) {
  if (qk_atexit(qk_mem_cleanup, "qk_mem_cleanup", "qk", "POSITION=LAST", &status) == 0) return true;
  Qk_mem_error.set(status.code);
  if (logs_errors(global_switches())) {
    qk_mem_write_log("   %s: ERROR: Unable to activate exit handler: %d\n", kRoutine, status.code);
  }
  return false;
}

bool create_overhead_handle() {
  if (qk_mem_inew_handle("OVERHEAD AUTOFREE MULTITHREADED", nullptr, own::kOverheadHandle.file,
                         own::kOverheadHandle.line) == QK_MEM_OVERHEAD_HANDLE) {
    return true;
  }
  if (logs_errors(global_switches())) {
    qk_mem_write_log("   %s: ERROR: Failure opening overhead handle: %d\n", kRoutine,
                     qk_mem_error());
  }
  return false;
}

void create_data_handle() {
  if (qk_mem_inew_handle("DATA MULTITHREADED", nullptr, own::kDataHandle.file,
                         own::kDataHandle.line) == QK_MEM_DATA_HANDLE) {
    return;
  }
  if (logs_errors(global_switches())) {
    qk_mem_write_log("   %s: ERROR: Failure opening data handle: %d\n", kRoutine, qk_mem_error());
  }
}

/**
 * Before main() and most constructors, because a fork calls the handlers that were registered last
 * first: a lock of the program's own handlers must be taken before the library's, under which other
 * threads, holding that lock, may be waiting.
 */
[[gnu::constructor(101)]] void watch_forks_from_the_start() { watch_forks(); }

/** Before main(), because there is only one thread then. */
[[gnu::constructor(101)]] void prepare_locks_from_the_start() { qk::prepare_locks(); }

/** Any failure ends the start-up and leaves its error code. */
void start_up() {
  qk::Status status;
  QK_INIT_STATUS(&status);
  Qk_mem_init_heap = qk_heapsize();
  settle_blocksize();
  if (qk_mem_debug_init(&status) != 0 || qk_mem_options("", &status) != 0) {
    Qk_mem_error.set(status.code);
    return;
  }
  log_configuration(status);
  configure_profile_from_environment();
  configure_checks_from_environment();
  qk::find_allocator_code();
  qk::put_off_end_while(is_busy);
  if (register_exit_handler(status) && create_overhead_handle()) create_data_handle();
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_init(void) {
  using namespace qk::mem;
  const RegistryLock lock;
  if (Qk_mem_initialized != 0) return;
  // Set first, because the start-up makes public calls, which would start up again.
  Qk_mem_initialized = 1;
  start_up();
  open_fast_slots();
  qk::publish(start_up_is_over, 1);
  settle_all_roads();
}

extern "C" int qk_mem_error(void) { return *Qk_mem_error; }
