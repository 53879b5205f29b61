// Memory that is new on a handle: malloc, calloc, strdup.
#include <cstring>

#include "alloc/entry.h"
#include "core/system_memory.h"
#include "diag/log.h"
#include "diag/system_failure.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

Site malloc_site(const char* file, int line) {
  return {"qk_mem_imalloc", file, line, switches_of(Routine::kMalloc)};
}

void warn_of_malloc_misuse(const qk_mem_handle& handle, std::size_t size, int align,
                           const Site& site) {
  if (size == 0) {
    qk_mem_write_log("   %s: WARNING: malloc of %zu at %s:%d\n", site.routine, size, site.file(),
                     site.line);
  }
  if (!is_supported_alignment(handle, align)) {
    qk_mem_write_log("   %s: WARNING: malloc of %zu at %s:%d has alignment of %d\n", site.routine,
                     size, site.file(), site.line, align);
  }
}

/** What follows when the system's allocator has answered. */
[[gnu::noinline]] void* conclude_malloc(qk_mem_handle& handle, void* memory, std::size_t size,
                                        const Site& site) {
  if (memory != nullptr) {
    record_allocation(handle, memory, kind::kMalloc, {1, size}, site);
    return memory;
  }
  report_failed_malloc(size, site);
  return nullptr;
}

template <class Lock>
[[gnu::noinline]] void* malloc_quickly(qk_mem_handle& handle, std::size_t size, int /*align*/,
                                       const char* file, int line) {
  void* memory = user_memory::allocate(size);
  if (memory != nullptr &&
      record_quickly<Lock>(handle, memory, kind::kMalloc, 1, size, file, line)) {
    return memory;
  }
  return conclude_malloc(handle, memory, size, malloc_site(file, line));
}

[[gnu::noinline]] void* malloc_on_handle(int hid, std::size_t size, int align, const char* file,
                                         int line);

template <class Lock>
[[gnu::always_inline]] inline void* take_piece_locked(qk_mem_handle& handle, std::size_t size,
                                                      int align) {
  const Lock lock(handle);
  return take_piece_quickly(handle, size, align);
}

/** On a block-managed handle that keeps no records of its pieces. */
template <class Lock>
[[gnu::noinline]] void* piece_quickly(qk_mem_handle& handle, std::size_t size, int align,
                                      const char* file, int line) {
  void* piece = take_piece_locked<Lock>(handle, size, align);
  return piece != nullptr ? piece : malloc_on_handle(handle.id, size, align, file, line);
}

template <class Lock>
[[gnu::noinline]] void* recorded_piece_quickly(qk_mem_handle& handle, std::size_t size, int align,
                                               const char* file, int line) {
  void* piece = take_piece_locked<Lock>(handle, size, align);
  if (piece == nullptr) return malloc_on_handle(handle.id, size, align, file, line);
  if (!record_quickly<Lock>(handle, piece, kind_on(handle, kind::kMalloc), 1, size, file, line)) {
    record_allocation(handle, piece, kind::kMalloc, {1, size}, malloc_site(file, line));
  }
  return piece;
}

template <class Lock>
[[gnu::always_inline]] inline void* malloc_on_quiet_handle(qk_mem_handle& handle, std::size_t size,
                                                           int align, const char* file, int line) {
  if (is_blockmgmt(handle)) {
    return handle.track == 0 ? piece_quickly<Lock>(handle, size, align, file, line)
                             : recorded_piece_quickly<Lock>(handle, size, align, file, line);
  }
  return handle.track == 0 ? malloc_on_handle(handle.id, size, align, file, line)
                           : malloc_quickly<Lock>(handle, size, align, file, line);
}

[[gnu::noinline]] void* malloc_on_handle(int hid, std::size_t size, int align, const char* file,
                                         int line) {
  ensure_started();
  if (bypasses_tracking(hid)) return untracked(user_memory::allocate(size));
  const Site site = malloc_site(file, line);
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return nullptr;
  if (warns(site)) warn_of_malloc_misuse(*handle, size, align, site);
  if (!is_blockmgmt(*handle))
    return conclude_malloc(*handle, user_memory::allocate(size), size, site);
  void* piece = allocate_piece(*handle, size, align, site);
  if (piece != nullptr) record_allocation(*handle, piece, kind::kMalloc, {1, size}, site);
  return piece;
}

Site calloc_site(const char* file, int line) {
  return {"qk_mem_icalloc", file, line, switches_of(Routine::kCalloc)};
}

void warn_of_calloc_misuse(const qk_mem_handle& handle, std::size_t num, std::size_t size,
                           int alignment, const Site& site) {
  if (num == 0) {
    qk_mem_write_log("   %s: WARNING: calloc of %zu num at %s:%d\n", site.routine, num, site.file(),
                     site.line);
  }
  if (size == 0) {
    qk_mem_write_log("   %s: WARNING: calloc of %zu at %s:%d\n", site.routine, size, site.file(),
                     site.line);
  }
  if (!is_supported_alignment(handle, alignment)) {
    qk_mem_write_log("   %s: WARNING: calloc of %zu/%zu at %s:%d has alignment of %d\n",
                     site.routine, num, size, site.file(), site.line, alignment);
  }
}

/** Pieces are zeroed here; a product that doesn't fit is a size that nobody serves. */
void* obtain_zeroed_piece(qk_mem_handle& handle, std::size_t num, std::size_t size, int alignment,
                          const Site& site) {
  const std::size_t bytes = product(num, size);
  void* piece = allocate_piece(handle, bytes, alignment, site);
  return piece == nullptr ? nullptr : std::memset(piece, 0, bytes);
}

/** What follows when the system's allocator has answered. */
[[gnu::noinline]] void* conclude_calloc(qk_mem_handle& handle, void* memory, std::size_t num,
                                        std::size_t size, const Site& site) {
  if (memory != nullptr) {
    record_allocation(handle, memory, kind::kCalloc, {num, size}, site);
    return memory;
  }
  SystemFailure failure;
  if (reports(site)) {
    qk_mem_write_log("   %s: ERROR: calloc of %zu/%zu at %s:%d failed: %d %s\n", site.routine, num,
                     size, site.file(), site.line, failure.number(), failure.text());
  }
  return nullptr;
}

template <class Lock>
[[gnu::noinline]] void* calloc_quickly(qk_mem_handle& handle, std::size_t num, std::size_t size,
                                       const char* file, int line) {
  void* memory = user_memory::allocate_zeroed(num, size);
  if (memory != nullptr &&
      record_quickly<Lock>(handle, memory, kind::kCalloc, num, size, file, line)) {
    return memory;
  }
  return conclude_calloc(handle, memory, num, size, calloc_site(file, line));
}

[[gnu::noinline]] void* calloc_on_handle(int hid, std::size_t num, std::size_t size, int alignment,
                                         const char* file, int line) {
  ensure_started();
  if (bypasses_tracking(hid)) return untracked(user_memory::allocate_zeroed(num, size));
  const Site site = calloc_site(file, line);
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return nullptr;
  if (warns(site)) warn_of_calloc_misuse(*handle, num, size, alignment, site);
  if (!is_blockmgmt(*handle)) {
    return conclude_calloc(*handle, user_memory::allocate_zeroed(num, size), num, size, site);
  }
  void* piece = obtain_zeroed_piece(*handle, num, size, alignment, site);
  if (piece != nullptr) record_allocation(*handle, piece, kind::kCalloc, {num, size}, site);
  return piece;
}

void warn_of_strdup_misuse(const char* str, const Site& site) {
  if (str != nullptr) return;
  qk_mem_write_log("   %s: WARNING: strdup of NULL pointer at %s:%d\n", site.routine, site.file(),
                   site.line);
}

void* obtain_copied_piece(qk_mem_handle& handle, const char* str, const Site& site) {
  const std::size_t size = std::strlen(str) + 1;
  // Records of strings hold 32 bits, and a piece has no other note of its size.
  void* piece = allocate_piece(handle, size > UINT32_MAX ? SIZE_MAX : size, 1, site);
  return piece == nullptr ? nullptr : std::memcpy(piece, str, size);
}

void* obtain_strdup(qk_mem_handle& handle, const char* str, std::size_t size, const Site& site) {
  if (is_blockmgmt(handle)) return obtain_copied_piece(handle, str, site);
  void* memory = user_memory::copy_of(str);
  if (memory != nullptr) return memory;
  SystemFailure failure;
  if (reports(site)) {
    qk_mem_write_log("   %s: ERROR: strdup of %zu at %s:%d failed: %d %s\n", site.routine, size,
                     site.file(), site.line, failure.number(), failure.text());
  }
  return nullptr;
}

/** Bytes of a string and its terminator as records show them, in 32 bits. */
std::size_t recorded_size(const char* str) {
  return static_cast<std::uint32_t>(std::strlen(str) + 1);
}

}  // namespace
}  // namespace qk::mem

extern "C" void* qk_mem_imalloc(int hid, size_t size, int align, const char* file, int line) {
  using namespace qk::mem;
  if (bypasses_at_once(hid)) return untracked(user_memory::allocate(size));
  if (qk_mem_handle* handle = quiet_handle(hid, Routine::kMalloc)) {
    return handle->mtx == nullptr
               ? malloc_on_quiet_handle<NoLock>(*handle, size, align, file, line)
               : malloc_on_quiet_handle<HandleLock>(*handle, size, align, file, line);
  }
  return malloc_on_handle(hid, size, align, file, line);
}

extern "C" void* qk_mem_icalloc(int hid, size_t num, size_t size, int alignment, const char* file,
                                int line) {
  using namespace qk::mem;
  if (bypasses_at_once(hid)) return untracked(user_memory::allocate_zeroed(num, size));
  qk_mem_handle* handle = quiet_handle(hid, Routine::kCalloc);
  if (handle != nullptr && is_tracking(*handle)) {
    return handle->mtx == nullptr ? calloc_quickly<NoLock>(*handle, num, size, file, line)
                                  : calloc_quickly<HandleLock>(*handle, num, size, file, line);
  }
  return calloc_on_handle(hid, num, size, alignment, file, line);
}

extern "C" char* qk_mem_istrdup(int hid, const char* str, const char* file, int line) {
  using namespace qk::mem;
  static constexpr char routine[] = "qk_mem_istrdup";
  ensure_started();
  if (bypasses_tracking(hid)) {
    return str == nullptr ? nullptr : static_cast<char*>(untracked(user_memory::copy_of(str)));
  }
  const Site site(routine, file, line, switches_of(Routine::kStrdup));
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return nullptr;
  if (warns(site)) warn_of_strdup_misuse(str, site);
  if (str == nullptr) return nullptr;
  const std::size_t size = recorded_size(str);
  void* memory = obtain_strdup(*handle, str, size, site);
  if (memory != nullptr) record_allocation(*handle, memory, kind::kStrdup, {1, size}, site);
  return static_cast<char*>(memory);
}

extern "C" size_t qk_mem_isize(int hid, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const Site site("qk_mem_isize", file, line, global_switches());
  const qk_mem_handle* handle = open_handle(hid, site);
  return handle == nullptr ? static_cast<size_t>(-1) : qk::load(handle->amount);
}
