// The deletion of a handle.
#include <utility>

#include "core/kinds.h"
#include "core/registry.h"
#include "core/shutdown.h"
#include "core/system_memory.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/log.h"
#include "handle/release_walk.h"
#include "handle/warnings.h"
#include "table/lookup.h"
#include "table/pointer_table.h"
#include "table/slot.h"
#include "table/tags.h"

namespace qk::mem {
namespace {

class DeletionRules : public WalkRules {
 public:
  DeletionRules(qk_mem_handle& handle, const Site& site) : handle_(handle), site_(site) {}

  /** The handle array and blocks have their own way out. */
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

  /** What data the handle holds leaves its tag in one sum at the end. */
  void charge(const qk_mem_ptr& record, unsigned char /*letter*/) override {
    if (!is_management(record.kind)) return;
    add_bytes(handle_, Totals::kOverhead, record.kind, 0 - bytes_of(record));
  }

 private:
  /** The letter tells how the memory will go, further down; unknown memory has that of before. */
  unsigned char letter_of_handle_memory(const qk_mem_ptr& record) {
    if (record.address == &handle_) return event::kFree;
    if (record.address == handle_.mtx) return event::kObjectReleased;
    if (reports(site_)) {
      qk_mem_write_log("   %s: WARNING: %3d [%.*zx] unknown HANDLE MEMORY ptr at %s:%d\n",
                       site_.routine, handle_.id, Qk_mem_ptr_display_size, shown(record.address),
                       site_.file(), site_.line);
    }
    return letter_;
  }

  qk_mem_handle& handle_;
  const Site& site_;
  unsigned char letter_ = event::kFree;
};

/** The handle array outlives the overhead handle; its record is kept for the report at exit. */
void keep_handle_array_record(qk_mem_handle& overhead, const Site& site) {
  const RegistryLock lock;
  const auto taken = take_pointer(overhead, Qk_mem_handles, Totals::kNone);
  if (taken) {
    Qk_mem_handles_ptr = taken->record;
  } else if (reports(site)) {
    warn_handle_array_not_found(site, Qk_mem_handles);
  }
}

void release_block(qk_mem_handle& handle, qk_mem_block* block, const Site& site) {
  std::optional<Taken> taken;
  if (handle.track_blocks != 0) taken = take_pointer(handle, block, Totals::kNone);
  free_unless_kept(block);
  if (!taken) return;
  announce_released(lines::kReleasedInWalk, site, handle.id, event::kFree, taken->record,
                    release_of(taken->record));
}

void release_blocks(qk_mem_handle& handle, const Site& site) {
  while (qk_mem_block* block = handle.blocks) {
    handle.blocks = block->next;
    release_block(handle, block, site);
  }
}

/** Lets go of an array under the registry's lock, under which reports read arrays. */
qk_mem_ptr* detach_array(qk_mem_handle& handle, int index) {
  const RegistryAndHandleLock lock(handle);
  qk_mem_ptr_array& array = handle.ptrs[index];
  qk_mem_ptr* slots = array.ptrs;
  qk_mem_free_ptrs(&handle, index);
  qk::publish(array.ptrs, nullptr);
  return slots;
}

void release_arrays(qk_mem_handle& handle, const Site& site) {
  for (int index = 0; index < kArraysPerHandle; ++index) {
    if (slots_of(handle.ptrs[index]) == 0) continue;
    const qk_mem_ptr own = read_slot(handle.ptrs[index].ptrs[0]);
    announce_released(lines::kReleasedInWalk, site, handle.id, event::kFree, own, release_of(own));
    free_unless_kept(detach_array(handle, index));
  }
}

void leave_tag(qk_mem_handle& handle) {
  const RegistryLock lock;
  give_tag_up(handle);
  qk::subtract(handle.tag->amount, handle.amount);
}

/**
 * From here on the handle has no mutex and belongs to the deleting thread alone. A fork takes the
 * mutexes of all handles under the registry's lock.
 */
void release_mutex(qk_mem_handle& handle) {
  const RegistryLock lock;
  const qk::Mtx* mtx = std::exchange(handle.mtx, nullptr);
  if (!keeps_memory()) own_memory::destroy(mtx);
}

void unregister(qk_mem_handle* handle) {
  const RegistryLock lock;
  withdraw(*handle);
  free_unless_kept(handle);
  qk::store(Qk_mem_num_handles, Qk_mem_num_handles - 1);
}

int refuse_data_handle(const Site& site) {
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  if (reports(site)) {
    qk_mem_write_log("   %s: ERROR: del_handle of QK_MEM_DATA_HANDLE at %s:%d\n", site.routine,
                     site.file(), site.line);
  }
  return QK_MEM_ERROR_HANDLE;
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_idel_handle(int hid, const char* file, int line) {
  using namespace qk::mem;
  static constexpr char routine[] = "qk_mem_idel_handle";
  ensure_started();
  const Site site(routine, file, line, switches_of(Routine::kDelHandle));
  if (hid == QK_MEM_DATA_HANDLE) return refuse_data_handle(site);
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return qk_mem_error();
  const bool has_records = keeps_records(*handle);
  if (has_records) {
    DeletionRules rules(*handle, site);
    release_records(*handle, site, rules);
    if (hid == QK_MEM_OVERHEAD_HANDLE) keep_handle_array_record(*handle, site);
  }
  release_blocks(*handle, site);
  if (has_records || handle->track_blocks != 0) release_arrays(*handle, site);
  leave_tag(*handle);
  release_mutex(*handle);
  next_seq();
  announce_handle_gone(site, *handle, event::kHandleDeleted);
  unregister(handle);
  dump_control_blocks(*site.switches);
  return 0;
}
