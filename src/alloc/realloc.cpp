// realloc and recalloc on a handle.
#include <cstring>

#include "accounting/pieces.h"
#include "accounting/walks.h"
#include "alloc/fast_path.h"
#include "alloc/shared_steps.h"
#include "alloc/unrecorded.h"
#include "check/release.h"
#include "check/report/look.h"
#include "check/report/wrong_release.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "profile/filling.h"
#include "profile/report/misuse.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

using ReallocCall = void*(int hid, void* ptr, std::size_t size, int alignment, const char* file,
                          int line);

CallContext realloc_context(const char* file, int line) { return {Routine::kRealloc, file, line}; }

/** The name in warnings of memory that realloc can't resize; null for memory that it can. */
const char* name_of_foreign(unsigned char kind) {
  switch (kind) {
    case kind::kExternal:
      return "external";
    case kind::kObject:
      return "new";
    case kind::kArray:
      return "new[]";
    default:
      return nullptr;
  }
}

void warn_of_old_pointer(qk_mem_handle& handle, const void* ptr, const CallContext& context) {
  const auto record = find_pointer(handle, ptr);
  if (!record) {
    warn_not_found(context, handle.id, as_number(ptr));
  } else if (const char* name = name_of_foreign(record->kind)) {
    qk_mem_write_log("   %s: WARNING: realloc of %s at %s:%d (allocated at %s:%d)\n",
                     context.routine, name, context.file(), context.line, record->file,
                     int{record->line});
  }
}

void warn_of_misuse(qk_mem_handle& handle, const void* ptr, std::size_t size, int alignment,
                    const CallContext& context) {
  if (size == 0) {
    qk_mem_write_log("   %s: WARNING: realloc of %zu at %s:%d\n", context.routine, size,
                     context.file(), context.line);
  }
  if (ptr != nullptr) warn_of_old_pointer(handle, ptr, context);
  if (!is_supported_alignment(handle, alignment)) {
    qk_mem_write_log("   %s: WARNING: realloc of %zu at %s:%d has alignment of %d\n",
                     context.routine, size, context.file(), context.line, alignment);
  }
  if (ptr != nullptr && is_blockmgmt(handle) && handle.blockfree == 0) {
    qk_mem_write_log("   %s: WARNING: realloc on handle %d with blockmgmt at %s:%d\n",
                     context.routine, handle.id, context.file(), context.line);
  }
}

/** Memory that was resized, and the record that it had before. Without memory it is set aside. */
struct Resized {
  check::NewBlock block;
  std::optional<Removed> old;

  [[nodiscard]] bool has_memory() const { return block.address != nullptr; }
};

/** Tells people of memory that realloc can't resize, before the system's allocator may give up. */
void tell_of_misuse(const qk_mem_handle& handle, const void* ptr, const std::optional<Removed>& old,
                    const CallContext& context) {
  if (!old) {
    profile::tell_of_unknown_address(handle, ptr, Routine::kRealloc, context);
  } else if (name_of_foreign(old->record.kind) != nullptr) {
    profile::tell_of_wrong_call(handle, old->record, profile::WrongCall::kReallocOfForeign,
                                Routine::kRealloc, context);
  }
}

/** A block without memory, as if the allocator had refused. */
check::NewBlock refuse_resize() {
  errno = EINVAL;
  return {};
}

/** Resizes memory whose record is set aside, while the checks are on or have left it guards. */
check::NewBlock resize_known(const qk_mem_handle& handle, const Removed& old, std::size_t size,
                             const CallContext& context) {
  const history::Release by = {context.path, context.line, history::Ending::kResized};
  if (size == 0) {
    check::release(handle, old.record, old.mark, by);
    errno = 0;
    return {};
  }
  const check::BlockFacts facts = check::facts_of(handle, old.record, old.mark);
  check::look_before_release(facts);
  if (const check::NewBlock moved = check::copy_elsewhere(handle, facts, size);
      moved.address != nullptr) {
    check::release(handle, old.record, old.mark, by);
    return moved;
  }
  return check::resize(handle, old.record.address, facts.bytes, old.mark, size);
}

/** Resizes memory, or refuses to resize what can't be. */
check::NewBlock resize_block(qk_mem_handle& handle, void* ptr, const std::optional<Removed>& old,
                             std::size_t size, const CallContext& context) {
  if (ptr == nullptr) return check::resize(handle, nullptr, 0, {}, size);
  if (!old && !is_walked(handle) &&
      check::refuses_release(handle, ptr, Routine::kRealloc, context)) {
    return refuse_resize();
  }
  tell_of_misuse(handle, ptr, old, context);
  if (!old) return {user_memory::resize(ptr, size), {}};
  if (is_language_made(old->record.kind) && check::checks(handle)) return refuse_resize();
  if (is_system_memory(old->record.kind) && check::cares_for(handle, old->mark)) {
    return resize_known(handle, *old, size, context);
  }
  return check::resize(handle, ptr, bytes_of(old->record), {}, size);
}

/**
 * Resizes memory of the system's allocator. Its record is set aside first, because another thread
 * can be given the old address at once.
 */
Resized resize_memory(qk_mem_handle& handle, void* ptr, std::size_t size,
                      const CallContext& context) {
  Resized resized;
  if (handle.track == 0) {
    resized.block.address = UnrecordedRealloc(&handle, ptr, context).resize(ptr, size, context);
    return resized;
  }
  if (ptr != nullptr) {
    resized.old = set_aside_pointer(handle, ptr, {context.path, context.line});
  }
  resized.block = resize_block(handle, ptr, resized.old, size, context);
  if (resized.old && resized.has_memory()) free_place_of(handle, *resized.old);
  return resized;
}

/**
 * Reports a failure and restores the record, since the memory is as it was. A realloc to 0 that
 * returns null has freed the memory, so its record is not restored.
 */
void report_failed_resize(qk_mem_handle& handle, const Resized& resized, std::size_t size,
                          const CallContext& context) {
  report_failure(context, "realloc of %zu at %s:%d failed", size, context.file(), context.line);
  if (!resized.old) return;
  if (size == 0) {
    free_place_of(handle, *resized.old);
  } else {
    restore_pointer(handle, *resized.old);
  }
}

/**
 * Resizes a piece of a block. A piece that is large enough stays where it is; a smaller one is
 * replaced without its contents. An unknown pointer can't be resized, as its size is unknown.
 */
Resized resize_piece(qk_mem_handle& handle, void* ptr, std::size_t size, int alignment,
                     const CallContext& context) {
  Resized resized;
  if (refuse_alignment(alignment)) return resized;
  if (ptr == nullptr) {
    resized.block = allocate_piece(handle, size, alignment, context);
    return resized;
  }
  if (handle.blockfree == 0) return resized;
  resized.old = set_aside_pointer(handle, ptr, {context.path, context.line});
  if (!resized.old) {
    if (logs_errors(context)) warn_not_found(context, handle.id, as_number(ptr));
    profile::tell_of_unknown_address(handle, ptr, Routine::kRealloc, context);
    return resized;
  }
  const Removed& old = *resized.old;
  resized.block = size <= bytes_of(old.record)
                      ? shrink_piece(handle, ptr, old, size)
                      : replace_piece(handle, ptr, old, size, alignment, context);
  if (resized.has_memory()) {
    free_place_of(handle, old);
  } else {
    restore_pointer(handle, old);
  }
  return resized;
}

void log_resized(const CallContext& context, int hid, const qk_mem_ptr& now,
                 const qk_mem_ptr* old) {
  const HeapText heap;
  if (old == nullptr) {
    qk_mem_write_log("   %s:     %3d [%.*zx] %c %zu %s:%d; newly created%s\n", context.routine, hid,
                     Qk_mem_ptr_display_size, as_number(now.address), now.kind, now.size, now.file,
                     int{now.line}, heap.c_str());
  } else if (is_calloc(old->kind)) {
    qk_mem_write_log("   %s:     %3d [%.*zx] %c %zu %s:%d; [%.*zx] %c %zu/%zu %s:%d%s\n",
                     context.routine, hid, Qk_mem_ptr_display_size, as_number(now.address),
                     now.kind, now.size, now.file, int{now.line}, Qk_mem_ptr_display_size,
                     as_number(old->address), old->kind, old->count, old->size, old->file,
                     int{old->line}, heap.c_str());
  } else if (old->kind != 0) {
    qk_mem_write_log("   %s:     %3d [%.*zx] %c %zu %s:%d; [%.*zx] %c %zu %s:%d%s\n",
                     context.routine, hid, Qk_mem_ptr_display_size, as_number(now.address),
                     now.kind, now.size, now.file, int{now.line}, Qk_mem_ptr_display_size,
                     as_number(old->address), old->kind, old->size, old->file, int{old->line},
                     heap.c_str());
  }
}

/**
 * Records the memory under its new size and announces it together with the record before. Returns
 * what the program gets.
 */
void* record_resized(qk_mem_handle& handle, const Resized& resized, std::size_t size,
                     const CallContext& context) {
  const qk_mem_ptr* old = resized.old ? &resized.old->record : nullptr;
  check::NewBlock block = resized.block;
  const auto now = record_block(handle, block, kind_on(handle, kind::kRealloc), {1, size}, context);
  if (!now) return block.address;
  if (logs_events(context)) log_resized(context, handle.id, *now, old);
  const long change = static_cast<long>(bytes_of(*now) - (old == nullptr ? 0 : bytes_of(*old)));
  qk_mem_write_db(handle.id, now->kind, now->address, now->count, now->size, now->file, now->line,
                  traced_change(handle, change));
  dump_control_blocks(*context.switches);
  return block.address;
}

/** Records memory that the system's allocator has resized, or reports that it failed. */
[[gnu::noinline]] void* finish_realloc(qk_mem_handle& handle, const Resized& resized,
                                       const void* ptr, std::size_t size,
                                       const CallContext& context) {
  const std::size_t address = as_number(ptr);
  if (!resized.has_memory()) {
    report_failed_resize(handle, resized, size, context);
  } else if (handle.track != 0) {
    if (ptr == nullptr || resized.old) return record_resized(handle, resized, size, context);
    if (logs_errors(context)) warn_not_found(context, handle.id, address);
  }
  return resized.block.address;
}

void* realloc_piece(qk_mem_handle& handle, void* ptr, std::size_t size, int alignment,
                    const CallContext& context) {
  const Resized resized = resize_piece(handle, ptr, size, alignment, context);
  if (!resized.has_memory()) return nullptr;
  return handle.track != 0 ? record_resized(handle, resized, size, context)
                           : note_unrecorded(handle, resized.block, size, context);
}

[[gnu::noinline]] void* realloc_on_handle(qk_mem_handle& handle, void* ptr, std::size_t size,
                                          int alignment, const CallContext& context) {
  if (is_walked(handle) && !take_back_from_walk(handle, ptr)) return nullptr;
  if (checks_misuse(context)) warn_of_misuse(handle, ptr, size, alignment, context);
  if (is_blockmgmt(handle)) return realloc_piece(handle, ptr, size, alignment, context);
  return finish_realloc(handle, resize_memory(handle, ptr, size, context), ptr, size, context);
}

/** A function of its own: it is the only part of the fast path that needs a stack. */
[[gnu::noinline]] void* realloc_untracked(void* ptr, std::size_t size) {
  return untracked(user_memory::resize(ptr, size));
}

[[gnu::noinline]] void* realloc_slow_path(int hid, void* ptr, std::size_t size, int alignment,
                                          const char* file, int line) {
  ensure_started();
  const check::DueLook due_look;
  const CallContext context = realloc_context(file, line);
  if (bypasses_tracking(hid)) {
    return untracked(
        UnrecordedRealloc(watched_data_handle(), ptr, context).resize(ptr, size, context));
  }
  qk_mem_handle* handle = look_up_handle(hid, context);
  return handle == nullptr ? nullptr : realloc_on_handle(*handle, ptr, size, alignment, context);
}

/** Takes over from the fast path when there is no memory, or no room for the new record. */
[[gnu::noinline]] void* finish_unusual(qk_mem_handle& handle, Place old, void* memory,
                                       std::size_t size, const char* file, int line) {
  const Resized resized = {{memory, {}}, set_aside_in(handle, old.address, old.index)};
  if (memory != nullptr) free_place_of(handle, *resized.old);
  return finish_realloc(handle, resized, old.address, size, realloc_context(file, line));
}

/** Records what the system's allocator has returned for memory whose record is set aside. */
template <class Handling>
[[gnu::noinline]] void* record_resized_fast(qk_mem_handle& handle, Place old, void* memory,
                                            std::size_t size, const char* file, int line) {
  if (memory != nullptr && record_again_fast<Handling>(handle, old, memory, size, file, line)) {
    return memory;
  }
  return finish_unusual(handle, old, memory, size, file, line);
}

template <class Handling>
[[gnu::noinline]] void* realloc_searched(qk_mem_handle& handle, void* ptr, std::size_t size,
                                         int alignment, const char* file, int line) {
  const Place old = set_aside_fast<Handling>(handle, ptr, file, line);
  if (old.index == kNoSlot) {
    return realloc_on_handle(handle, ptr, size, alignment, realloc_context(file, line));
  }
  void* memory = user_memory::resize(ptr, size);
  return record_resized_fast<Handling>(handle, old, memory, size, file, line);
}

/** The usual cases are in functions of their own, because they need few registers. */
template <class Handling>
[[gnu::noinline]] void* realloc_recorded(qk_mem_handle& handle, void* ptr, std::size_t size,
                                         int alignment, const char* file, int line) {
  if constexpr (Handling::kWatched) {
    if (profile::fills_new()) [[unlikely]] {
      return realloc_on_handle(handle, ptr, size, alignment, realloc_context(file, line));
    }
  }
  const Place old = set_aside_in_small_fast<Handling>(handle, ptr, file, line);
  if (old.index == kNoSlot) {
    return realloc_searched<Handling>(handle, ptr, size, alignment, file, line);
  }
  void* memory = user_memory::resize(ptr, size);
  if (memory == ptr && record_in_place_fast<Handling>(handle, old, size, file, line)) return memory;
  return record_resized_fast<Handling>(handle, old, memory, size, file, line);
}

[[gnu::always_inline]] inline void* realloc_fast_path(int hid, void* ptr, std::size_t size,
                                                      int alignment, const char* file, int line,
                                                      ReallocCall* slow_path) {
  if (bypasses_tracking_fast(hid)) return realloc_untracked(ptr, size);
  return on_recording_handle(
      hid, Routine::kRealloc,
      [&]<class Handling>(qk_mem_handle& handle) {
        return realloc_recorded<Handling>(handle, ptr, size, alignment, file, line);
      },
      [&] { return slow_path(hid, ptr, size, alignment, file, line); });
}

}  // namespace
}  // namespace qk::mem

extern "C" void* qk_mem_irealloc(int hid, void* ptr, size_t size, int alignment, const char* file,
                                 int line) {
  using namespace qk::mem;
  return realloc_fast_path(hid, ptr, size, alignment, file, line, &realloc_slow_path);
}

extern "C" void* qk_mem_irecalloc(int hid, void* ptr, size_t num, size_t size, size_t old_num,
                                  int alignment, const char* file, int line) {
  using namespace qk::mem;
  void* memory = qk_mem_irealloc(hid, ptr, qk::product(num, size), alignment, file, line);
  if (memory != nullptr && num > old_num) {
    std::memset(static_cast<char*>(memory) + size * old_num, 0, (num - old_num) * size);
  }
  return memory;
}
