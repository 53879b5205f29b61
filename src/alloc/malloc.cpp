// malloc on a handle.
#include "accounting/pieces.h"
#include "alloc/fast_path.h"
#include "alloc/shared_steps.h"
#include "alloc/unrecorded.h"
#include "check/new_block.h"
#include "check/report/look.h"
#include "diag/log.h"
#include "profile/filling.h"
#include "support/system_memory.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

using MallocCall = void*(int hid, std::size_t size, int alignment, const char* file, int line);

CallContext malloc_context(const char* file, int line) { return {Routine::kMalloc, file, line}; }

void warn_of_misuse(const qk_mem_handle& handle, std::size_t size, int alignment,
                    const CallContext& context) {
  if (size == 0) {
    qk_mem_write_log("   %s: WARNING: malloc of %zu at %s:%d\n", context.routine, size,
                     context.file(), context.line);
  }
  if (!is_supported_alignment(handle, alignment)) {
    qk_mem_write_log("   %s: WARNING: malloc of %zu at %s:%d has alignment of %d\n",
                     context.routine, size, context.file(), context.line, alignment);
  }
}

/** Records what the system's allocator returned, or reports that it failed. */
[[gnu::noinline]] void* finish_malloc(qk_mem_handle& handle, const check::NewBlock& block,
                                      std::size_t size, const CallContext& context) {
  if (block.address == nullptr) {
    report_failed_malloc(size, context);
    return nullptr;
  }
  return record_allocation(handle, block, kind::kMalloc, {1, size}, context);
}

[[gnu::noinline]] void* malloc_on_handle(qk_mem_handle& handle, std::size_t size, int alignment,
                                         const CallContext& context) {
  if (checks_misuse(context)) warn_of_misuse(handle, size, alignment, context);
  if (!is_blockmgmt(handle)) {
    return finish_malloc(handle, check::allocate(handle, size), size, context);
  }
  const check::NewBlock piece = allocate_piece(handle, size, alignment, context);
  if (piece.address == nullptr) return nullptr;
  return record_allocation(handle, piece, kind::kMalloc, {1, size}, context);
}

[[gnu::noinline]] void* malloc_slow_path(int hid, std::size_t size, int alignment, const char* file,
                                         int line) {
  ensure_started();
  const check::DueLook due_look;
  const CallContext context = malloc_context(file, line);
  if (bypasses_tracking(hid)) {
    qk_mem_handle* const watched = watched_data_handle();
    if (watched == nullptr) return untracked(user_memory::allocate(size));
    return note_direct(*watched, check::allocate(*watched, size), size, context);
  }
  qk_mem_handle* handle = look_up_handle(hid, context);
  return handle == nullptr ? nullptr : malloc_on_handle(*handle, size, alignment, context);
}

/** Continues on the slow path with the handle that was found. */
[[gnu::noinline]] void* fall_back(qk_mem_handle& handle, std::size_t size, int alignment,
                                  const char* file, int line) {
  return malloc_on_handle(handle, size, alignment, malloc_context(file, line));
}

/** `name` is null if the path has to be searched for it. */
template <class Handling>
[[gnu::noinline]] void* record_malloc(qk_mem_handle& handle, void* memory, std::size_t size,
                                      const char* name, const char* path, int line) {
  if (name == nullptr) name = qk::search_path(path);
  if (memory != nullptr &&
      record_fast<Handling>(handle, memory, kind::kMalloc, 1, size, name, line)) {
    return memory;
  }
  return finish_malloc(handle, {memory, {}}, size, malloc_context(path, line));
}

/**
 * The usual case is a function of its own, because it needs few registers. Its parameters are in
 * the places where the caller has them.
 */
template <class Handling>
[[gnu::noipa]] void* malloc_recorded(qk_mem_handle& handle, std::size_t size, int /*alignment*/,
                                     const char* path, int line) {
  void* memory = user_memory::allocate(size);
  if constexpr (Handling::kWatched) profile::fill_new(memory, 0, size);
  const char* name = nullptr;
  if (memory == nullptr || !qk::find_known_name(path, name) ||
      !record_in_small_fast<Handling>(handle, memory, kind::kMalloc, 1, size, name, line)) {
    return record_malloc<Handling>(handle, memory, size, name, path, line);
  }
  return memory;
}

/** The same of a checked handle. */
template <class Handling>
[[gnu::noinline]] void* record_checked(qk_mem_handle& handle, void* memory, std::size_t size,
                                       const char* path, int line, const check::Layout& layout) {
  const char* name = qk::search_path(path);
  if (record_fast<Handling>(handle, memory, kind::kMalloc, 1, size, name, line, layout.flags)) {
    return memory;
  }
  return finish_malloc(handle, {memory, layout}, size, malloc_context(path, line));
}

[[gnu::cold]] void* malloc_after_emptying(qk_mem_handle& handle, std::size_t size, const char* path,
                                          int line, const check::Layout& layout) {
  const check::NewBlock block = check::allocate_after_emptying(size, layout);
  if (block.address != nullptr) profile::fill_new(block.address, 0, size);
  return finish_malloc(handle, block, size, malloc_context(path, line));
}

/** There is no guard in front: handles that have it take the slow road. */
template <class Handling>
[[gnu::noipa]] void* malloc_checked(qk_mem_handle& handle, std::size_t size, int /*alignment*/,
                                    const char* path, int line) {
  const check::Layout layout = check::layout_behind_new();
  void* const memory = user_memory::allocate(sum(size, layout.behind));
  if (memory == nullptr) [[unlikely]]
    return malloc_after_emptying(handle, size, path, line, layout);
  check::lay_guard(check::guard_behind(memory, size), layout.behind);
  profile::fill_new(memory, 0, size);
  const char* name = nullptr;
  if (!qk::find_known_name(path, name) ||
      !record_in_small_fast<Handling>(handle, memory, kind::kMalloc, 1, size, name, line,
                                      layout.flags)) [[unlikely]] {
    return record_checked<Handling>(handle, memory, size, path, line, layout);
  }
  return memory;
}

template <class Lock>
[[gnu::always_inline]] inline void* take_piece_locked(qk_mem_handle& handle, std::size_t size,
                                                      int alignment) {
  const Lock lock(handle);
  return take_piece_fast(handle, size, alignment);
}

/** The same when the quick look has found nothing. */
template <class Lock>
[[gnu::noinline]] void* search_piece(qk_mem_handle& handle, std::size_t size, int alignment,
                                     const char* file, int line) {
  void* piece = nullptr;
  if (alignment > 0) {
    const Lock lock(handle);
    piece = take_piece(handle, size, alignment);
  }
  return piece != nullptr ? piece : fall_back(handle, size, alignment, file, line);
}

/** Takes a piece from a block-managed handle that does not record its pieces. */
template <class Lock>
[[gnu::noinline]] void* piece_unrecorded(qk_mem_handle& handle, std::size_t size, int alignment,
                                         const char* file, int line) {
  void* piece = take_piece_locked<Lock>(handle, size, alignment);
  return piece != nullptr ? piece : search_piece<Lock>(handle, size, alignment, file, line);
}

template <class Lock>
[[gnu::noinline]] void* piece_recorded(qk_mem_handle& handle, std::size_t size, int alignment,
                                       const char* file, int line) {
  if (alignment <= 0) return fall_back(handle, size, alignment, file, line);
  void* piece = nullptr;
  {
    const char* name = qk::name_in_path(file);
    const Lock lock(handle);
    piece = take_piece_fast(handle, size, alignment);
    if (piece == nullptr) [[unlikely]]
      piece = take_piece(handle, size, alignment);
    if (piece != nullptr && record_locked<Needs<Lock, false>>(
                                handle, piece, as_piece(kind::kMalloc), 1, size, name, line, {})) {
      return piece;
    }
  }
  if (piece == nullptr) return fall_back(handle, size, alignment, file, line);
  return record_allocation(handle, {piece, {}}, kind::kMalloc, {1, size},
                           malloc_context(file, line));
}

[[gnu::always_inline]] inline void* malloc_fast_path(int hid, std::size_t size, int alignment,
                                                     const char* file, int line,
                                                     MallocCall* slow_path) {
  if (bypasses_tracking_fast(hid)) return untracked(user_memory::allocate(size));
  qk_mem_handle* handle = find_handle_fast(hid);
  if (handle == nullptr) [[unlikely]]
    return slow_path(hid, size, alignment, file, line);
  const Road road = road_of(*handle, Routine::kMalloc);
  if (road == Road::kRecords) [[likely]]
    return malloc_recorded<Needs<NoLock, false>>(*handle, size, alignment, file, line);
  // A piece takes so little that the jump by a table, which the switch is, would show.
  if (road == Road::kPieces) return piece_unrecorded<NoLock>(*handle, size, alignment, file, line);
  switch (road) {
    case Road::kRecordsLocked:
      return malloc_recorded<Needs<HandleLock, false>>(*handle, size, alignment, file, line);
    case Road::kRecordsWatched:
      return malloc_recorded<Needs<NoLock, true>>(*handle, size, alignment, file, line);
    case Road::kRecordsWatchedLocked:
      return malloc_recorded<Needs<HandleLock, true>>(*handle, size, alignment, file, line);
    case Road::kRecordsChecked:
      return malloc_checked<Needs<NoLock, true, true>>(*handle, size, alignment, file, line);
    case Road::kRecordsCheckedLocked:
      return malloc_checked<Needs<HandleLock, true, true>>(*handle, size, alignment, file, line);
    case Road::kPiecesLocked:
      return piece_unrecorded<HandleLock>(*handle, size, alignment, file, line);
    case Road::kRecordedPieces:
      return piece_recorded<NoLock>(*handle, size, alignment, file, line);
    case Road::kRecordedPiecesLocked:
      return piece_recorded<HandleLock>(*handle, size, alignment, file, line);
    case Road::kRecords:
    case Road::kPieces:
    case Road::kSlow:
      break;
  }
  return slow_path(hid, size, alignment, file, line);
}

}  // namespace
}  // namespace qk::mem

extern "C" void* qk_mem_imalloc(int hid, size_t size, int alignment, const char* file, int line) {
  return qk::mem::malloc_fast_path(hid, size, alignment, file, line, &qk::mem::malloc_slow_path);
}
