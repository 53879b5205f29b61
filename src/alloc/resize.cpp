// Memory that changes its size: realloc, recalloc.
#include <cstring>

#include "alloc/entry.h"
#include "core/system_memory.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/system_failure.h"
#include "diag/trace_file.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

/** What memory of a kind that realloc doesn't fit is called, or null. */
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

void warn_of_old_pointer(qk_mem_handle& handle, const void* ptr, const Site& site) {
  const auto record = find_pointer(handle, ptr);
  if (!record) {
    warn_not_found(site, handle.id, shown(ptr));
  } else if (const char* name = name_of_foreign(record->kind)) {
    qk_mem_write_log("   %s: WARNING: realloc of %s at %s:%d (allocated at %s:%d)\n", site.routine,
                     name, site.file(), site.line, record->file, int{record->line});
  }
}

void warn_of_realloc_misuse(qk_mem_handle& handle, const void* ptr, std::size_t size, int alignment,
                            const Site& site) {
  if (size == 0) {
    qk_mem_write_log("   %s: WARNING: realloc of %zu at %s:%d\n", site.routine, size, site.file(),
                     site.line);
  }
  if (ptr != nullptr) warn_of_old_pointer(handle, ptr, site);
  if (!is_supported_alignment(handle, alignment)) {
    qk_mem_write_log("   %s: WARNING: realloc of %zu at %s:%d has alignment of %d\n", site.routine,
                     size, site.file(), site.line, alignment);
  }
  if (ptr != nullptr && is_blockmgmt(handle) && handle.blockfree == 0) {
    qk_mem_write_log("   %s: WARNING: realloc on handle %d with blockmgmt at %s:%d\n", site.routine,
                     handle.id, site.file(), site.line);
  }
}

void report_failed_realloc(std::size_t size, const Site& site, SystemFailure& failure) {
  if (!reports(site)) return;
  qk_mem_write_log("   %s: ERROR: realloc of %zu at %s:%d failed: %d %s\n", site.routine, size,
                   site.file(), site.line, failure.number(), failure.text());
}

/** Memory that was resized, and the record that it had before. */
struct Resized {
  void* memory;
  std::optional<Taken> old;
};

/**
 * Resizes memory of the system's allocator. The old record is out of the table meanwhile, since the
 * old address can be given to another thread at once.
 */
Resized resize_memory(qk_mem_handle& handle, void* ptr, std::size_t size) {
  Resized resized = {nullptr, std::nullopt};
  if (ptr != nullptr && handle.track != 0) {
    resized.old = take_pointer(handle, ptr, Totals::kDataOfOrdinary);
  }
  resized.memory = user_memory::resize(ptr, size);
  return resized;
}

/**
 * The old record is put back when nothing has happened. A realloc to 0 that answers null has freed
 * the memory, so then the record stays away.
 */
void report_failed_resize(qk_mem_handle& handle, const Resized& resized, const void* ptr,
                          std::size_t size, const Site& site) {
  SystemFailure failure;
  const bool freed = size == 0 && ptr != nullptr;
  if (resized.old && !freed) put_back(handle, *resized.old, Totals::kDataOfOrdinary);
  report_failed_realloc(size, site, failure);
}

/**
 * Resizes a piece of a block. One that fits its place stays there; one that doesn't is replaced
 * without its contents. A pointer that isn't known can't be resized, as nothing tells its size.
 */
Resized resize_piece(qk_mem_handle& handle, void* ptr, std::size_t size, int alignment,
                     const Site& site) {
  Resized resized = {nullptr, std::nullopt};
  if (refuses(alignment)) return resized;
  if (ptr == nullptr) {
    resized.memory = allocate_piece(handle, size, alignment, site);
    return resized;
  }
  if (handle.blockfree == 0) return resized;
  resized.old = take_pointer(handle, ptr, Totals::kDataOfOrdinary);
  if (!resized.old) {
    if (reports(site)) warn_not_found(site, handle.id, shown(ptr));
    return resized;
  }
  const qk_mem_ptr& old = resized.old->record;
  resized.memory =
      size <= bytes_of(old) ? ptr : replace_piece(handle, ptr, old, size, alignment, site);
  if (resized.memory == nullptr) put_back(handle, *resized.old, Totals::kDataOfOrdinary);
  return resized;
}

void log_resized(const Site& site, int hid, const qk_mem_ptr& now, const qk_mem_ptr* old) {
  const HeapText heap;
  if (old == nullptr) {
    qk_mem_write_log("   %s:     %3d [%.*zx] %c %zu %s:%d; newly created%s\n", site.routine, hid,
                     Qk_mem_ptr_display_size, shown(now.address), now.kind, now.size, now.file,
                     int{now.line}, heap.c_str());
  } else if (is_calloc(old->kind)) {
    qk_mem_write_log("   %s:     %3d [%.*zx] %c %zu %s:%d; [%.*zx] %c %zu/%zu %s:%d%s\n",
                     site.routine, hid, Qk_mem_ptr_display_size, shown(now.address), now.kind,
                     now.size, now.file, int{now.line}, Qk_mem_ptr_display_size,
                     shown(old->address), old->kind, old->count, old->size, old->file,
                     int{old->line}, heap.c_str());
  } else if (old->kind != 0) {
    qk_mem_write_log("   %s:     %3d [%.*zx] %c %zu %s:%d; [%.*zx] %c %zu %s:%d%s\n", site.routine,
                     hid, Qk_mem_ptr_display_size, shown(now.address), now.kind, now.size, now.file,
                     int{now.line}, Qk_mem_ptr_display_size, shown(old->address), old->kind,
                     old->size, old->file, int{old->line}, heap.c_str());
  }
}

/** Records the memory under its new size and announces it together with the record before. */
void record_resized(qk_mem_handle& handle, const Resized& resized, std::size_t size,
                    const Site& site) {
  const qk_mem_ptr* old = resized.old ? &resized.old->record : nullptr;
  const auto now = record_pointer(handle, resized.memory, kind_on(handle, kind::kRealloc),
                                  {1, size}, site, Totals::kDataOfOrdinary);
  if (!now) return;
  if (traces(site)) log_resized(site, handle.id, *now, old);
  const long change = static_cast<long>(bytes_of(*now) - (old == nullptr ? 0 : bytes_of(*old)));
  qk_mem_write_db(handle.id, now->kind, now->address, now->count, now->size, now->file, now->line,
                  traced_change(handle, change));
  dump_control_blocks(*site.switches);
}

/** What follows when memory of the system's allocator was resized or not. */
[[gnu::noinline]] void* conclude_realloc(qk_mem_handle& handle, const Resized& resized,
                                         const void* ptr, std::size_t size, const Site& site) {
  const std::size_t address = shown(ptr);
  if (resized.memory == nullptr) {
    report_failed_resize(handle, resized, ptr, size, site);
  } else if (handle.track != 0) {
    if (ptr != nullptr && !resized.old) {
      if (reports(site)) warn_not_found(site, handle.id, address);
    } else {
      record_resized(handle, resized, size, site);
    }
  }
  return resized.memory;
}

void* realloc_of_piece(qk_mem_handle& handle, void* ptr, std::size_t size, int alignment,
                       const Site& site) {
  const Resized resized = resize_piece(handle, ptr, size, alignment, site);
  if (resized.memory == nullptr || handle.track == 0) return resized.memory;
  record_resized(handle, resized, size, site);
  return resized.memory;
}

Site realloc_site(const char* file, int line) {
  return {"qk_mem_irealloc", file, line, switches_of(Routine::kRealloc)};
}

[[gnu::noinline]] void* realloc_on_handle(int hid, void* ptr, std::size_t size, int alignment,
                                          const char* file, int line) {
  ensure_started();
  if (bypasses_tracking(hid)) return untracked(user_memory::resize(ptr, size));
  const Site site = realloc_site(file, line);
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return nullptr;
  if (warns(site)) warn_of_realloc_misuse(*handle, ptr, size, alignment, site);
  if (is_blockmgmt(*handle)) return realloc_of_piece(*handle, ptr, size, alignment, site);
  return conclude_realloc(*handle, resize_memory(*handle, ptr, size), ptr, size, site);
}

template <class Lock>
[[gnu::noinline]] void* realloc_quickly(qk_mem_handle& handle, void* ptr, std::size_t size,
                                        int alignment, const char* file, int line) {
  Resized resized = {nullptr, Taken{}};
  if (!take_quickly<Lock>(handle, ptr, Totals::kDataOfOrdinary, &*resized.old)) {
    return realloc_on_handle(handle.id, ptr, size, alignment, file, line);
  }
  resized.memory = user_memory::resize(ptr, size);
  if (resized.memory != nullptr &&
      record_quickly<Lock>(handle, resized.memory, kind::kRealloc, 1, size, file, line)) {
    return resized.memory;
  }
  return conclude_realloc(handle, resized, ptr, size, realloc_site(file, line));
}

}  // namespace
}  // namespace qk::mem

extern "C" void* qk_mem_irealloc(int hid, void* ptr, size_t size, int alignment, const char* file,
                                 int line) {
  using namespace qk::mem;
  if (bypasses_at_once(hid)) return untracked(user_memory::resize(ptr, size));
  qk_mem_handle* handle = quiet_handle(hid, Routine::kRealloc);
  if (handle != nullptr && is_tracking(*handle)) {
    return handle->mtx == nullptr
               ? realloc_quickly<NoLock>(*handle, ptr, size, alignment, file, line)
               : realloc_quickly<HandleLock>(*handle, ptr, size, alignment, file, line);
  }
  return realloc_on_handle(hid, ptr, size, alignment, file, line);
}

extern "C" void* qk_mem_irecalloc(int hid, void* ptr, size_t num, size_t size, size_t old_num,
                                  int alignment, const char* file, int line) {
  using namespace qk::mem;
  void* memory = qk_mem_irealloc(hid, ptr, product(num, size), alignment, file, line);
  if (memory != nullptr && num > old_num) {
    std::memset(static_cast<char*>(memory) + size * old_num, 0, (num - old_num) * size);
  }
  return memory;
}
