// Deletion of a handle.
#include "handle/destroy.h"

#include <utility>

#include "accounting/handle_lookup.h"
#include "check/report/look.h"
#include "check/settings.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/roads.h"
#include "core/shutdown.h"
#include "core/tag_shares.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/log.h"
#include "handle/release_walk.h"
#include "profile/notes.h"
#include "support/system_memory.h"
#include "table/pointer_table.h"
#include "table/slot.h"
#include "table/tags.h"

namespace qk::mem {
namespace {

class DeletionRules : public WalkRules {
 public:
  DeletionRules(qk_mem_handle& handle, const CallContext& context)
      : handle_(handle), context_(context) {}

  /** The handle array, blocks and pointer arrays are released by steps of their own. */
  [[nodiscard]] bool keeps(const qk_mem_ptr& record) const override {
    return (record.kind == kind::kHandleMemory && record.address == qk::load(Qk_mem_handles)) ||
           record.kind == kind::kBlock || record.kind == kind::kPointerArray;
  }

  [[nodiscard]] unsigned char letter_of(const qk_mem_ptr& record) override {
    if (is_piece(record.kind)) return letter_ = event::kFreePiece;
    switch (record.kind) {
      case kind::kObject:
      case kind::kTracker:
        return letter_ = event::kObjectReleased;
      case kind::kArray:
        return letter_ = event::kArrayReleased;
      case kind::kHandleMemory:
        return letter_ = letter_of_handle_memory(record);
      default:
        return letter_ = event::kFree;
    }
  }

  /** The bytes of data are subtracted from the tag in one sum at the end. */
  void charge(const qk_mem_ptr& record, unsigned char /*letter*/) override {
    if (!is_management(record.kind)) return;
    add_bytes(handle_, ChargedTo::kOverhead, 0 - bytes_of(record));
  }

 private:
  /**
   * The kind of release that deletion performs later; unknown memory repeats the previous letter
   * (kept oddity).
   */
  unsigned char letter_of_handle_memory(const qk_mem_ptr& record) {
    if (record.address == &handle_) return event::kFree;
    if (record.address == handle_.mtx) return event::kObjectReleased;
    if (logs_errors(context_)) {
      qk_mem_write_log("   %s: WARNING: %3d [%.*zx] unknown HANDLE MEMORY ptr at %s:%d\n",
                       context_.routine, handle_.id, Qk_mem_ptr_display_size,
                       as_number(record.address), context_.file(), context_.line);
    }
    return letter_;
  }

  qk_mem_handle& handle_;
  const CallContext& context_;
  unsigned char letter_ = event::kFree;
};

/** The handle array outlives the overhead handle: its record is kept to be announced at exit. */
void keep_handle_array_record(qk_mem_handle& overhead, const CallContext& context) {
  const RegistryLock lock;
  const auto removed = remove_pointer(overhead, Qk_mem_handles, Removal::kByKind);
  if (removed) {
    Qk_mem_handles_ptr = removed->record;
  } else if (logs_errors(context)) {
    warn_handle_array_not_found(context, Qk_mem_handles);
  }
}

void release_block(qk_mem_handle& handle, qk_mem_block* block, const CallContext& context) {
  std::optional<Removed> removed;
  if (handle.track_blocks != 0) removed = remove_pointer(handle, block, Removal::kByKind);
  own_memory::release(block);
  if (!removed) return;
  announce_released(lines::kReleasedInWalk, context, handle.id, event::kFree, removed->record,
                    loss_of(removed->record));
}

void release_blocks(qk_mem_handle& handle, const CallContext& context) {
  own_memory::release(std::exchange(handle.block_index, nullptr));
  while (qk_mem_block* block = handle.blocks) {
    handle.blocks = block->next;
    release_block(handle, block, context);
  }
}

/** Detaches an array, under the registry's lock because reports read arrays under it. */
qk_mem_ptr* detach_array(qk_mem_handle& handle, int index) {
  const RegistryAndHandleLock lock(handle);
  qk_mem_ptr_array& array = handle.ptrs[index];
  qk_mem_ptr* slots = array.ptrs;
  own_memory::release(index_of(array));
  qk_mem_free_ptrs(&handle, index);
  qk::publish(array.ptrs, nullptr);
  return slots;
}

void release_arrays(qk_mem_handle& handle, const CallContext& context) {
  for (int index = 0; index < kArraysPerHandle; ++index) {
    if (slots_of(handle.ptrs[index]) == 0) continue;
    const qk_mem_ptr own = read_slot(handle.ptrs[index].ptrs[0]);
    announce_released(lines::kReleasedInWalk, context, handle.id, event::kFree, own, loss_of(own));
    own_memory::release(detach_array(handle, index));
  }
}

void subtract_from_tag(qk_mem_handle& handle) {
  const RegistryLock lock;
  fold_tag_share(handle);
  qk::subtract(handle.tag->amount, handle.amount);
}

/**
 * Only the deleting thread uses the handle by now, but a fork locks the mutexes of all handles
 * under the registry's lock.
 */
void release_mutex(qk_mem_handle& handle) {
  const RegistryLock lock;
  close_roads(handle);
  own_memory::destroy(std::exchange(handle.mtx, nullptr));
}

void note_deleted(qk_mem_handle& handle) {
  const HandleLock lock(handle);
  profile::note_deleted(handle);
}

void unregister(qk_mem_handle* handle) {
  const RegistryLock lock;
  unlist_handle(*handle);
  own_memory::release(handle);
  qk::store(Qk_mem_num_handles, Qk_mem_num_handles - 1);
}

int refuse_data_handle(const CallContext& context) {
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  if (logs_errors(context)) {
    qk_mem_write_log("   %s: ERROR: del_handle of QK_MEM_DATA_HANDLE at %s:%d\n", context.routine,
                     context.file(), context.line);
  }
  return QK_MEM_ERROR_HANDLE;
}

/**
 * Finds a handle to delete. The clean-up at exit then leaves it alone: it looks for AUTOFREE
 * handles under the registry's lock.
 */
qk_mem_handle* claim_handle(int hid, const CallContext& context) {
  const RegistryLock lock;
  qk_mem_handle* handle = look_up_handle(hid, context);
  if (handle != nullptr && !qk::is_single_threaded()) handle->autofree = 0;
  return handle;
}

/** Announces the records that `wants` selects, with the letters of their deletion. */
template <class Wants>
void announce_records(const qk_mem_handle& handle, const CallContext& context, WalkRules& rules,
                      Wants wants) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for_each_record(handle, [&](const qk_mem_ptr& record) {
    if (!wants(record)) return;
    const unsigned char letter = rules.letter_of(record);
    announce_released(lines::kReleasedInWalk, context, handle.id, letter, record,
                      letter == event::kFreePiece ? 0 : loss_of(record));
  });
}

/** The order is that of a deletion. */
void announce_all_records(qk_mem_handle& handle, const CallContext& context)
    QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  DeletionRules rules(handle, context);
  announce_records(handle, context, rules,
                   [&](const qk_mem_ptr& record) { return !rules.keeps(record); });
  if (handle.id == QK_MEM_OVERHEAD_HANDLE) keep_handle_array_record(handle, context);
  for (const unsigned char kind : {kind::kBlock, kind::kPointerArray}) {
    announce_records(handle, context, rules,
                     [kind](const qk_mem_ptr& record) { return record.kind == kind; });
  }
}

}  // namespace

void abandon_handle(qk_mem_handle& handle, SourceLocation location) {
  assert_registry_held();
  const CallContext context(Routine::kDelHandle, location.file, location.line);
  announce_all_records(handle, context);
  next_seq();
  announce_handle_gone(context, handle, event::kHandleDeleted);
  hide_handle(handle);
  dump_control_blocks(*context.switches);
}

}  // namespace qk::mem

extern "C" int qk_mem_idel_handle(int hid, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const CallContext context(Routine::kDelHandle, file, line);
  if (hid == QK_MEM_DATA_HANDLE) return refuse_data_handle(context);
  qk_mem_handle* handle = claim_handle(hid, context);
  if (handle == nullptr) return qk_mem_error();
  if (check::checks(*handle)) check::look_at_handle(*handle);
  const bool has_records = keeps_records(*handle);
  if (has_records) {
    DeletionRules rules(*handle, context);
    release_records(*handle, context, rules);
    if (hid == QK_MEM_OVERHEAD_HANDLE) keep_handle_array_record(*handle, context);
  }
  release_blocks(*handle, context);
  if (has_records || handle->track_blocks != 0) release_arrays(*handle, context);
  subtract_from_tag(*handle);
  if (profile::is_watched(*handle)) note_deleted(*handle);
  release_mutex(*handle);
  next_seq();
  announce_handle_gone(context, *handle, event::kHandleDeleted);
  unregister(handle);
  dump_control_blocks(*context.switches);
  return 0;
}
