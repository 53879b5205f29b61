// Creation of a handle.
#include <optional>

#include "accounting/pieces.h"
#include "accounting/tag_calls.h"
#include "check/unused.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/own_locations.h"
#include "core/registry.h"
#include "core/roads.h"
#include "core/shutdown.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/failure.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "handle/handle_options.h"
#include "profile/pool.h"
#include "profile/state.h"
#include "support/format.h"
#include "support/system_memory.h"
#include "support/text.h"
#include "table/tags.h"

namespace qk::mem {
namespace {

constexpr std::uint64_t kDefaultBlocksize = 2048;

/** The handle array before and after a growth, until that is recorded. Both can be the same. */
struct ArrayChange {
  qk_mem_handle** before;
  qk_mem_handle** now;
};

/**
 * Makes the handle array larger. Qk_mem_avail_handles is raised first and stays raised
 * if there is no memory; `real_slots` is the true length.
 */
std::optional<ArrayChange> grow_handle_array(const CallContext& context) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  qk_mem_handle** before = handle_slots().slots;
  qk::store(Qk_mem_avail_handles, Qk_mem_avail_handles + kHandleStep);
  qk_mem_handle** array = handle_array_for(Qk_mem_avail_handles);
  if (array == nullptr) {
    report_failure(context, "calloc of handle array failed");
    return std::nullopt;
  }
  replace_handle_array(array, Qk_mem_avail_handles);
  restore_surviving_handles();
  return ArrayChange{before, array};
}

/** The slot of the lowest free number. kNoHandleSlot if the array has none, which is reported. */
std::int32_t find_free_slot(const CallContext& context) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  const std::int32_t slot = lowest_free_handle_slot(first_slot_for_new());
  if (slot != kNoHandleSlot) return slot;
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  if (logs_errors(context)) {
    qk_mem_write_log("   %s: ERROR: handle array not maintained properly\n", context.routine);
  }
  return kNoHandleSlot;
}

/** A number that no other handle has had, unless four billion were created since. Never 0. */
std::uint32_t next_generation() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  static constinit std::uint32_t latest = 0;
  if (++latest == 0) ++latest;
  return latest;
}

/**
 * Creates a handle with defaults in a free slot. If that fails, the count of handles stays raised.
 */
qk_mem_handle* place_handle(std::int32_t slot, const CallContext& context) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  qk::store(Qk_mem_num_handles, Qk_mem_num_handles + 1);
  auto* handle = static_cast<qk_mem_handle*>(own_memory::allocate_zeroed(1, sizeof(qk_mem_handle)));
  if (handle == nullptr) {
    report_failure(context, "calloc of handle failed");
    return nullptr;
  }
  handle->id = slot + 1;
  handle->generation = next_generation();
  handle->blocksize = kDefaultBlocksize;
  handle->type = 'D';
  handle->tag = &Qk_mem_global_tag;
  fill_handle_slot(slot, *handle);
  return handle;
}

bool read_options(HandleOptions& asked, const char* options, const CallContext& context) {
  if (asked.read(options)) return true;
  Qk_mem_error.set(QK_MEM_ERROR_OPTIONS);
  if (logs_errors(context)) {
    qk_mem_write_log("   %s: ERROR: invalid options passed: %d %s\n", context.routine,
                     asked.error().code, asked.error().text);
  }
  return false;
}

bool add_mutex(qk_mem_handle& handle, const CallContext& context) {
  handle.mtx = own_memory::make<qk::Mtx>();
  if (handle.mtx != nullptr) return true;
  report_failure(context, "new of mtx failed");
  return false;
}

bool apply_options(qk_mem_handle& handle, const HandleOptions& asked, const CallContext& context) {
  asked.apply_to(handle);
  return !asked.multithreaded() || add_mutex(handle, context);
}

bool apply_tag(qk_mem_handle& handle, const char* tag, const CallContext& context) {
  const std::size_t length = qk_strlen(tag);
  if (length == 0) return true;
  if (length > kTagLength) {
    Qk_mem_error.set(QK_MEM_ERROR_TAG);
    if (logs_errors(context)) {
      qk_mem_write_log("   %s: ERROR: tag length too long: %d vs %d\n", context.routine,
                       static_cast<int>(length), static_cast<int>(kTagLength));
    }
    return false;
  }
  char name[kTagLength + 1];
  qk::copy_text(name, sizeof name, tag);
  qk::upper_case(name);
  qk_mem_tag* registered = qk_mem_register_tag(name);
  if (registered == nullptr) return false;
  handle.tag = registered;
  return true;
}

/** Decides what a handle records, for its whole life. */
void decide_tracking(qk_mem_handle& handle) {
  const bool debug = qk::load(global_switches().debug) != 0;
  if (debug) {
    handle.track = 1;
  } else if (is_blockmgmt(handle)) {
    handle.track = handle.blockfree;
  } else {
    handle.track = handle.id != QK_MEM_DATA_HANDLE || has_reports();
  }
  handle.track_blocks = debug || (is_blockmgmt(handle) && has_reports());
}

void announce_creation(const qk_mem_handle& handle, const CallContext& context) {
  if (logs_events(context)) {
    char blocksize[32] = "";
    if (is_blockmgmt(handle)) {
      qk_sprintf(blocksize, "B=%zu", handle.blocksize);
    }
    const HeapText heap;
    qk_mem_write_log("   %s:  %3d %c %c %s%s %s:%d%s\n", context.routine, handle.id,
                     event::kHandleCreated, handle.type, handle.autofree != 0 ? "A " : "",
                     blocksize, handle.file, handle.line, heap.c_str());
  }
  qk_mem_write_db(handle.id, event::kHandleCreated, nullptr, 0, 0, handle.file, handle.line, 0);
}

void record_own_memory(qk_mem_handle& handle, const CallContext& context) {
  if (handle.track == 0) return;
  qk_mem_handle_memory(&handle, &handle, sizeof handle, 'C', context.path, context.line,
                       context.switches);
  if (handle.mtx == nullptr) return;
  qk_mem_handle_memory(&handle, handle.mtx, sizeof *handle.mtx, 'W', context.path, context.line,
                       context.switches);
}

/** Adds the blocks that a block-managed handle begins with. False if there is no memory for one. */
bool add_blocks(qk_mem_handle& handle, int count, const CallContext& context) {
  for (int i = 0; i < count; ++i) {
    if (qk_mem_new_block(&handle, handle.blocksize, context.path, context.line, context.switches) ==
        nullptr) {
      return false;
    }
  }
  return true;
}

/** Sets up a handle that was just placed. False leaves it incomplete, for the caller to delete. */
bool set_up(qk_mem_handle& handle, const HandleOptions& asked, const char* tag,
            std::optional<ArrayChange>& array, const CallContext& context) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (!apply_options(handle, asked, context) || !apply_tag(handle, tag, context)) return false;
  decide_tracking(handle);
  if (profile::gives_marks()) profile::watch_handle(handle);
  check::begin_unused(handle);
  settle_roads(handle);
  handle.seq = next_seq();
  handle.file = context.file();
  handle.line = context.line;
  announce_creation(handle, context);
  if (array) {
    qk_mem_handle_array(array->before, array->now, own::kHandleArray.file, own::kHandleArray.line,
                        context.switches);
    array.reset();
  }
  record_own_memory(handle, context);
  const int blocks = is_blockmgmt(handle) ? asked.initial_blocks() : 0;
  if (blocks > 0) return add_blocks(handle, blocks, context);
  dump_control_blocks(*context.switches);
  return true;
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_inew_handle(const char* options, const char* tag, const char* file,
                                  int line) {
  using namespace qk::mem;
  ensure_started();
  const CallContext context(Routine::kNewHandle, file, line);
  const RegistryLock lock;
  std::optional<ArrayChange> array;
  if (Qk_mem_num_handles >= Qk_mem_avail_handles) {
    array = grow_handle_array(context);
    if (!array) return 0;
  }
  const std::int32_t slot = find_free_slot(context);
  if (slot == kNoHandleSlot) return 0;
  qk_mem_handle* handle = place_handle(slot, context);
  if (handle == nullptr) return 0;
  const int hid = handle->id;
  HandleOptions asked;
  if (read_options(asked, options, context) && set_up(*handle, asked, tag, array, context))
    return hid;
  qk_mem_idel_handle(hid, file, line);
  if (array && array->before != nullptr) release_handle_array(array->before);
  return 0;
}
