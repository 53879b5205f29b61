// malloc on a handle.
#include "accounting/pieces.h"
#include "alloc/fast_path.h"
#include "alloc/shared_steps.h"
#include "core/system_memory.h"
#include "diag/log.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

using MallocCall = void*(int hid, std::size_t size, int align, const char* file, int line);

CallContext malloc_context(const char* file, int line) { return {Routine::kMalloc, file, line}; }

void warn_of_misuse(const qk_mem_handle& handle, std::size_t size, int align,
                    const CallContext& context) {
  if (size == 0) {
    qk_mem_write_log("   %s: WARNING: malloc of %zu at %s:%d\n", context.routine, size,
                     context.file(), context.line);
  }
  if (!is_supported_alignment(handle, align)) {
    qk_mem_write_log("   %s: WARNING: malloc of %zu at %s:%d has alignment of %d\n",
                     context.routine, size, context.file(), context.line, align);
  }
}

/** Records what the system's allocator returned, or reports that it failed. */
[[gnu::noinline]] void* finish_malloc(qk_mem_handle& handle, void* memory, std::size_t size,
                                      const CallContext& context) {
  if (memory == nullptr) {
    report_failed_malloc(size, context);
  } else {
    record_allocation(handle, memory, kind::kMalloc, {1, size}, context);
  }
  return memory;
}

[[gnu::noinline]] void* malloc_on_handle(qk_mem_handle& handle, std::size_t size, int align,
                                         const CallContext& context) {
  if (warns(context)) warn_of_misuse(handle, size, align, context);
  if (!is_blockmgmt(handle)) {
    return finish_malloc(handle, user_memory::allocate(size), size, context);
  }
  void* piece = allocate_piece(handle, size, align, context);
  if (piece != nullptr) record_allocation(handle, piece, kind::kMalloc, {1, size}, context);
  return piece;
}

[[gnu::noinline]] void* malloc_slow_path(int hid, std::size_t size, int align, const char* file,
                                         int line) {
  ensure_started();
  if (bypasses_tracking(hid)) return untracked(user_memory::allocate(size));
  const CallContext context = malloc_context(file, line);
  qk_mem_handle* handle = open_handle(hid, context);
  return handle == nullptr ? nullptr : malloc_on_handle(*handle, size, align, context);
}

/** From the fast path to the slow one, with the handle that was found. */
[[gnu::noinline]] void* fall_back(qk_mem_handle& handle, std::size_t size, int align,
                                  const char* file, int line) {
  return malloc_on_handle(handle, size, align, malloc_context(file, line));
}

template <class Lock>
[[gnu::noinline]] void* malloc_recorded(qk_mem_handle& handle, std::size_t size, const char* file,
                                        int line) {
  void* memory = user_memory::allocate(size);
  if (memory != nullptr && record_fast<Lock>(handle, memory, kind::kMalloc, 1, size, file, line)) {
    return memory;
  }
  return finish_malloc(handle, memory, size, malloc_context(file, line));
}

template <class Lock>
[[gnu::always_inline]] inline void* take_piece_locked(qk_mem_handle& handle, std::size_t size,
                                                      int align) {
  const Lock lock(handle);
  return take_piece_fast(handle, size, align);
}

/** On a block-managed handle that does not record its pieces. */
template <class Lock>
[[gnu::noinline]] void* piece_unrecorded(qk_mem_handle& handle, std::size_t size, int align,
                                         const char* file, int line) {
  void* piece = take_piece_locked<Lock>(handle, size, align);
  return piece != nullptr ? piece : fall_back(handle, size, align, file, line);
}

template <class Lock>
[[gnu::noinline]] void* piece_recorded(qk_mem_handle& handle, std::size_t size, int align,
                                       const char* file, int line) {
  void* piece = take_piece_locked<Lock>(handle, size, align);
  if (piece == nullptr) return fall_back(handle, size, align, file, line);
  if (!record_fast<Lock>(handle, piece, as_piece(kind::kMalloc), 1, size, file, line)) {
    record_allocation(handle, piece, kind::kMalloc, {1, size}, malloc_context(file, line));
  }
  return piece;
}

template <class Lock>
[[gnu::always_inline]] inline void* malloc_unobserved(qk_mem_handle& handle, std::size_t size,
                                                      int align, const char* file, int line) {
  if (is_blockmgmt(handle)) {
    return handle.track == 0 ? piece_unrecorded<Lock>(handle, size, align, file, line)
                             : piece_recorded<Lock>(handle, size, align, file, line);
  }
  return handle.track == 0 ? fall_back(handle, size, align, file, line)
                           : malloc_recorded<Lock>(handle, size, file, line);
}

[[gnu::always_inline]] inline void* malloc_fast_path(int hid, std::size_t size, int align,
                                                     const char* file, int line,
                                                     MallocCall* slow_path) {
  if (bypasses_tracking_fast(hid)) return untracked(user_memory::allocate(size));
  qk_mem_handle* handle = unobserved_handle(hid, Routine::kMalloc);
  if (handle == nullptr) return slow_path(hid, size, align, file, line);
  return with_lock_of(*handle, [&]<class Lock>() {
    return malloc_unobserved<Lock>(*handle, size, align, file, line);
  });
}

}  // namespace
}  // namespace qk::mem

extern "C" void* qk_mem_imalloc(int hid, size_t size, int align, const char* file, int line) {
  return qk::mem::malloc_fast_path(hid, size, align, file, line, &qk::mem::malloc_slow_path);
}
