// Clear of a block-managed handle.
#include "accounting/handle_lookup.h"
#include "check/report/look.h"
#include "check/settings.h"
#include "check/unused.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/event.h"
#include "diag/log.h"
#include "handle/release_walk.h"
#include "profile/notes.h"
#include "table/blocks.h"
#include "table/pointer_table.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

class ClearingRules : public WalkRules {
 public:
  explicit ClearingRules(qk_mem_handle& handle) : handle_(handle) {}

  /** The handle's own memory and its blocks stay. */
  [[nodiscard]] bool keeps(const qk_mem_ptr& record) const override {
    return !is_piece(record.kind) && !is_language_made(record.kind) &&
           record.kind != kind::kExternal && record.kind != kind::kTracker;
  }

  [[nodiscard]] unsigned char letter_of(const qk_mem_ptr& record) override {
    switch (record.kind) {
      case kind::kObject:
      case kind::kTracker:
        return event::kObjectReleased;
      case kind::kArray:
        return event::kArrayReleased;
      case kind::kExternal:
        return event::kFree;
      default:
        return event::kFreePiece;
    }
  }

  /**
   * Subtracts a tracker's bytes from both sums, though they were only part of the overhead (kept
   * oddity).
   */
  void charge(const qk_mem_ptr& record, unsigned char letter) override {
    const std::uint64_t less = 0 - bytes_of(record);
    if (record.kind == kind::kTracker) add_bytes(handle_, ChargedTo::kOverhead, less);
    if (letter != event::kFreePiece) add_bytes(handle_, ChargedTo::kData, less);
  }

 private:
  qk_mem_handle& handle_;
};

/** Shortcut for a handle with only pieces to drop, and no observer. */
void forget_pieces(qk_mem_handle& handle) {
  const HandleLock lock(handle);
  for (qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t index = 1; index < slots; ++index) {
      const qk_mem_ptr& slot = array.ptrs[index];
      if (is_piece(qk::load(slot.kind)) && recorded_address(slot) != nullptr) {
        remove_visited(handle, array, index);
      }
    }
  }
}

void release_contents(qk_mem_handle& handle, const CallContext& context) {
  if (qk::load(handle.registered) == 0 && !is_observed(context)) {
    forget_pieces(handle);
    return;
  }
  ClearingRules rules(handle);
  release_records(handle, context, rules);
}

/** Pieces without records, as far as the profile knows of them. */
void note_pieces_gone(qk_mem_handle& handle) {
  if (!profile::is_watched(handle)) return;
  const HandleLock lock(handle);
  profile::note_all_gone(handle);
}

/** Looks at all pieces, and notes for the time after who has cleared them. */
void look_before_clear(qk_mem_handle& handle, const CallContext& context) {
  check::look_at_handle(handle);
  const HandleLock lock(handle);
  check::note_cleared(handle, {context.path, context.line, history::Ending::kWithHandle});
}

int refuse_ordinary_handle(int hid, const CallContext& context) {
  Qk_mem_error.set(QK_MEM_ERROR_HANDLE);
  if (logs_errors(context)) {
    qk_mem_write_log("   %s: ERROR: clear_handle on handle %d with non-blockmgmt at %s:%d\n",
                     context.routine, hid, context.file(), context.line);
  }
  return QK_MEM_ERROR_HANDLE;
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_iclear_handle(int hid, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const CallContext context(Routine::kClearHandle, file, line);
  qk_mem_handle* handle = look_up_handle(hid, context);
  if (handle == nullptr) return qk_mem_error();
  if (!is_blockmgmt(*handle)) return refuse_ordinary_handle(hid, context);
  if (check::checks(*handle)) look_before_clear(*handle, context);
  if (keeps_records(*handle)) release_contents(*handle, context);
  if (handle->track == 0) note_pieces_gone(*handle);
  reset_blocks(*handle);
  next_seq();
  announce_handle_gone(context, *handle, event::kHandleCleared);
  dump_control_blocks(*context.switches);
  return 0;
}
