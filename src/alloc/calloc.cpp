// calloc on a handle.
#include <cstring>

#include "accounting/pieces.h"
#include "alloc/fast_path.h"
#include "alloc/shared_steps.h"
#include "alloc/unrecorded.h"
#include "check/new_block.h"
#include "check/report/look.h"
#include "diag/log.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

using CallocCall = void*(int hid, std::size_t num, std::size_t size, int alignment,
                         const char* file, int line);

CallContext calloc_context(const char* file, int line) { return {Routine::kCalloc, file, line}; }

void warn_of_misuse(const qk_mem_handle& handle, std::size_t num, std::size_t size, int alignment,
                    const CallContext& context) {
  if (num == 0) {
    qk_mem_write_log("   %s: WARNING: calloc of %zu num at %s:%d\n", context.routine, num,
                     context.file(), context.line);
  }
  if (size == 0) {
    qk_mem_write_log("   %s: WARNING: calloc of %zu at %s:%d\n", context.routine, size,
                     context.file(), context.line);
  }
  if (!is_supported_alignment(handle, alignment)) {
    qk_mem_write_log("   %s: WARNING: calloc of %zu/%zu at %s:%d has alignment of %d\n",
                     context.routine, num, size, context.file(), context.line, alignment);
  }
}

/** A zeroed piece. A product that overflows is a size that no allocator serves. */
check::NewBlock allocate_zeroed_piece(qk_mem_handle& handle, std::size_t num, std::size_t size,
                                      int alignment, const CallContext& context) {
  const std::size_t bytes = product(num, size);
  const check::NewBlock piece = allocate_piece(handle, bytes, alignment, context);
  if (piece.address != nullptr) std::memset(piece.address, 0, bytes);
  return piece;
}

/** Records what the system's allocator returned, or reports that it failed. */
[[gnu::noinline]] void* finish_calloc(qk_mem_handle& handle, const check::NewBlock& block,
                                      std::size_t num, std::size_t size,
                                      const CallContext& context) {
  if (block.address == nullptr) {
    report_failure(context, "calloc of %zu/%zu at %s:%d failed", num, size, context.file(),
                   context.line);
    return nullptr;
  }
  return record_allocation(handle, block, kind::kCalloc, {num, size}, context);
}

/** A function of its own: it is the only part of the fast path that needs a stack. */
[[gnu::noinline]] void* calloc_untracked(std::size_t num, std::size_t size) {
  return untracked(user_memory::allocate_zeroed(num, size));
}

[[gnu::noinline]] void* calloc_slow_path(int hid, std::size_t num, std::size_t size, int alignment,
                                         const char* file, int line) {
  ensure_started();
  const check::DueLook due_look;
  const CallContext context = calloc_context(file, line);
  if (bypasses_tracking(hid)) {
    qk_mem_handle* const watched = watched_data_handle();
    if (watched == nullptr) return calloc_untracked(num, size);
    return note_direct(*watched, check::allocate_zeroed(*watched, num, size), product(num, size),
                       context);
  }
  qk_mem_handle* handle = look_up_handle(hid, context);
  if (handle == nullptr) return nullptr;
  if (checks_misuse(context)) warn_of_misuse(*handle, num, size, alignment, context);
  if (!is_blockmgmt(*handle)) {
    return finish_calloc(*handle, check::allocate_zeroed(*handle, num, size), num, size, context);
  }
  const check::NewBlock piece = allocate_zeroed_piece(*handle, num, size, alignment, context);
  if (piece.address == nullptr) return nullptr;
  return record_allocation(*handle, piece, kind::kCalloc, {num, size}, context);
}

template <class Handling>
[[gnu::noinline]] void* calloc_recorded(qk_mem_handle& handle, std::size_t num, std::size_t size,
                                        const char* file, int line) {
  void* memory = user_memory::allocate_zeroed(num, size);
  if (memory != nullptr && record_fast<Handling>(handle, memory, kind::kCalloc, num, size,
                                                 qk::name_in_path(file), line)) {
    return memory;
  }
  return finish_calloc(handle, {memory, {}}, num, size, calloc_context(file, line));
}

[[gnu::always_inline]] inline void* calloc_fast_path(int hid, std::size_t num, std::size_t size,
                                                     int alignment, const char* file, int line,
                                                     CallocCall* slow_path) {
  if (bypasses_tracking_fast(hid)) return calloc_untracked(num, size);
  return on_recording_handle(
      hid, Routine::kCalloc,
      [&]<class Handling>(qk_mem_handle& handle) {
        return calloc_recorded<Handling>(handle, num, size, file, line);
      },
      [&] { return slow_path(hid, num, size, alignment, file, line); });
}

}  // namespace
}  // namespace qk::mem

extern "C" void* qk_mem_icalloc(int hid, size_t num, size_t size, int alignment, const char* file,
                                int line) {
  using namespace qk::mem;
  return calloc_fast_path(hid, num, size, alignment, file, line, &calloc_slow_path);
}
