// free on a handle.
#include "accounting/pieces.h"
#include "accounting/walks.h"
#include "alloc/checked_path.h"
#include "alloc/fast_path.h"
#include "alloc/shared_steps.h"
#include "alloc/unrecorded.h"
#include "check/release.h"
#include "check/report/look.h"
#include "check/report/wrong_release.h"
#include "diag/log.h"
#include "profile/report/misuse.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

using profile::WrongCall;
using FreeCall = void(int hid, void* ptr, const char* file, int line);

CallContext free_context(const char* file, int line) { return {Routine::kFree, file, line}; }

/** Warns of misuse that the pointer itself shows, and returns the pointer's record. */
std::optional<qk_mem_ptr> warn_of_pointer(qk_mem_handle& handle, const void* ptr,
                                          const CallContext& context) {
  if (ptr == nullptr) {
    qk_mem_write_log("   %s: WARNING: free of NULL pointer at %s:%d\n", context.routine,
                     context.file(), context.line);
    return std::nullopt;
  }
  const auto record = find_pointer(handle, ptr);
  if (!record) {
    warn_not_found(context, handle.id, as_number(ptr));
  } else if (is_language_made(record->kind)) {
    qk_mem_write_log("   %s: WARNING: free of new at %s:%d (allocated at %s:%d)\n", context.routine,
                     context.file(), context.line, record->file, int{record->line});
  }
  return record;
}

void warn_of_misuse(qk_mem_handle& handle, const void* ptr, const CallContext& context) {
  const auto record = warn_of_pointer(handle, ptr, context);
  const bool external = record && record->kind == kind::kExternal;
  if (is_blockmgmt(handle) && handle.blockfree == 0 && !external) {
    qk_mem_write_log("   %s: WARNING: free on handle %d with blockmgmt at %s:%d\n", context.routine,
                     handle.id, context.file(), context.line);
  }
}

/** Frees what has no record any more, unless the checks are on and know that it is no memory. */
void release_removed(qk_mem_handle& handle, const Removed& removed, const CallContext& context) {
  const qk_mem_ptr& record = removed.record;
  if (check::checks(handle)) check::look_beside(handle, record, removed.index);
  if (is_language_made(record.kind)) {
    profile::tell_of_wrong_call(handle, record, WrongCall::kFreeOfObject, Routine::kFree, context);
    if (check::checks(handle)) return;
  }
  if (is_system_memory(record.kind) && check::cares_for(handle, removed.mark)) {
    check::release(handle, record, removed.mark,
                   {context.path, context.line, history::Ending::kFreed});
  } else {
    user_memory::release(record.address);
  }
}

/** Frees what had no record, unless the checks are on and know that it can't be freed. */
void release_unknown(const qk_mem_handle& handle, void* ptr, const CallContext& context) {
  if (check::refuses_release(handle, ptr, Routine::kFree, context)) return;
  profile::tell_of_unknown_address(handle, ptr, Routine::kFree, context);
  user_memory::release(ptr);
}

/**
 * Removes the record before it frees the memory: as soon as the memory is free, another thread can
 * be given the same address and record it.
 */
std::optional<Removed> free_memory(qk_mem_handle& handle, void* ptr, const CallContext& context) {
  if (ptr == nullptr || !keeps_records(handle)) {
    release_unrecorded(handle, ptr, context);
    return std::nullopt;
  }
  const auto removed = remove_pointer(handle, ptr, Removal::kByFree, {context.path, context.line});
  if (removed) {
    release_removed(handle, *removed, context);
  } else {
    if (logs_errors(context)) warn_not_found(context, handle.id, as_number(ptr));
    release_unknown(handle, ptr, context);
  }
  return removed;
}

/**
 * Frees on a block-managed handle, where only pieces under BLOCKFREE and external memory can be
 * freed one by one. Everything else stays, without an event.
 */
std::optional<Removed> free_piece(qk_mem_handle& handle, void* ptr, const CallContext& context) {
  if (qk::load(handle.registered) == 0 && handle.blockfree == 0) return std::nullopt;
  const auto record = find_pointer(handle, ptr);
  if (!record) {
    report_unknown_piece(handle, ptr, context);
    if (ptr != nullptr) {
      profile::tell_of_unknown_address(handle, ptr, Routine::kFree, context);
    } else {
      profile::count_null_free(handle);
    }
    return std::nullopt;
  }
  if (handle.blockfree == 0 && record->kind != kind::kExternal) return std::nullopt;
  const auto removed = remove_pointer(handle, ptr, Removal::kByFree, {context.path, context.line});
  if (removed) release_piece(handle, ptr, *removed, context);
  return removed;
}

void announce_free(const qk_mem_handle& handle, const qk_mem_ptr& record,
                   const CallContext& context) {
  next_seq();
  announce_released(lines::kFreed, context, handle.id,
                    is_blockmgmt(handle) ? event::kFreePiece : event::kFree, record,
                    traced_change(handle, loss_of(record)));
  dump_control_blocks(*context.switches);
}

[[gnu::noinline]] void free_on_handle(qk_mem_handle& handle, void* ptr,
                                      const CallContext& context) {
  if (is_walked(handle) && was_released_by_walk(handle, ptr)) return;
  if (checks_misuse(context)) warn_of_misuse(handle, ptr, context);
  const auto removed =
      is_blockmgmt(handle) ? free_piece(handle, ptr, context) : free_memory(handle, ptr, context);
  if (removed) announce_free(handle, removed->record, context);
}

[[gnu::noinline]] void free_slow_path(int hid, void* ptr, const char* file, int line) {
  ensure_started();
  const check::DueLook due_look;
  const CallContext context = free_context(file, line);
  if (bypasses_tracking(hid)) {
    qk_mem_handle* const watched = watched_data_handle();
    return watched == nullptr ? user_memory::release(ptr)
                              : release_unrecorded(*watched, ptr, context);
  }
  qk_mem_handle* handle = look_up_handle(hid, context);
  if (handle != nullptr) free_on_handle(*handle, ptr, context);
}

template <class Handling>
[[gnu::noinline]] void free_searched(qk_mem_handle& handle, void* ptr, const char* file, int line) {
  if (!remove_fast<Handling>(handle, ptr, file, line)) {
    return free_on_handle(handle, ptr, free_context(file, line));
  }
  user_memory::release(ptr);
}

/** The usual case is a function of its own, because it needs few registers. */
template <class Handling>
[[gnu::noinline]] void free_recorded(qk_mem_handle& handle, void* ptr, const char* file, int line) {
  if (!remove_from_small_fast<Handling>(handle, ptr, file, line)) {
    return free_searched<Handling>(handle, ptr, file, line);
  }
  user_memory::release(ptr);
}

/** Releases a block whose record was removed. It has no guard in front. */
[[gnu::always_inline]] inline void release_checked(qk_mem_handle& handle, void* ptr,
                                                   const char* path, int line,
                                                   const CheckedBlock& block) {
  if (!check::keeps_released()) return check::release_at_once(ptr, block.bytes, ptr);
  const check::BlockFacts facts = {.address = ptr,
                                   .bytes = block.bytes,
                                   .mark = block.mark,
                                   .hid = handle.id,
                                   .tag = handle.tag->name,
                                   .file = block.file,
                                   .line = block.line,
                                   .released = {path, line, history::Ending::kFreed},
                                   .released_event = block.released_event};
  check::release_whole(profile::pool_of(handle), facts);
}

template <class Handling>
[[gnu::noinline]] void free_checked_searched(qk_mem_handle& handle, void* ptr, const char* file,
                                             int line) {
  CheckedBlock block;
  if (!remove_checked<Handling>(handle, ptr, file, line, block)) [[unlikely]] {
    return free_on_handle(handle, ptr, free_context(file, line));
  }
  release_checked(handle, ptr, file, line, block);
}

template <class Handling>
[[gnu::noinline]] void free_checked(qk_mem_handle& handle, void* ptr, const char* file, int line) {
  CheckedBlock block;
  if (!remove_checked_from_small<Handling>(handle, ptr, file, line, block)) [[unlikely]] {
    return free_checked_searched<Handling>(handle, ptr, file, line);
  }
  release_checked(handle, ptr, file, line, block);
}

[[gnu::always_inline]] inline void free_fast_path(int hid, void* ptr, const char* file, int line,
                                                  FreeCall* slow_path) {
  if (bypasses_tracking_fast(hid)) return user_memory::release(ptr);
  on_recording_handle<true>(
      hid, Routine::kFree,
      [&]<class Handling>(qk_mem_handle& handle) {
        if constexpr (Handling::kChecked) {
          free_checked<Handling>(handle, ptr, file, line);
        } else {
          free_recorded<Handling>(handle, ptr, file, line);
        }
      },
      [&] { slow_path(hid, ptr, file, line); });
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_ifree(int hid, void* ptr, const char* file, int line) {
  qk::mem::free_fast_path(hid, ptr, file, line, &qk::mem::free_slow_path);
}
