// Memory that is new on a handle: malloc, calloc, strdup.
#include <cstring>

#include "qkmem/alloc/entry.h"
#include "qkmem/alloc/system_memory.h"
#include "qkmem/diag/log.h"
#include "qkmem/diag/system_failure.h"
#include "qkmem/table/blocks.h"

namespace qk::mem {
namespace {

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

void* obtain_malloc(qk_mem_handle& handle, std::size_t size, int align, const Site& site) {
  if (is_blockmgmt(handle)) return allocate_piece(handle, size, align, site);
  void* memory = system_malloc(size);
  if (memory != nullptr) return memory;
  SystemFailure failure;
  if (reports(site)) {
    qk_mem_write_log("   %s: ERROR: malloc of %zu at %s:%d failed: %d %s\n", site.routine, size,
                     site.file(), site.line, failure.number(), failure.text());
  }
  return nullptr;
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

void* obtain_calloc(qk_mem_handle& handle, std::size_t num, std::size_t size, int alignment,
                    const Site& site) {
  if (is_blockmgmt(handle)) return obtain_zeroed_piece(handle, num, size, alignment, site);
  void* memory = system_calloc(num, size);
  if (memory != nullptr) return memory;
  SystemFailure failure;
  if (reports(site)) {
    qk_mem_write_log("   %s: ERROR: calloc of %zu/%zu at %s:%d failed: %d %s\n", site.routine, num,
                     size, site.file(), site.line, failure.number(), failure.text());
  }
  return nullptr;
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
  void* memory = ::strdup(str);
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
  static constexpr char routine[] = "qk_mem_imalloc";
  ensure_started();
  if (bypasses_tracking(hid)) return untracked(system_malloc(size));
  const Site site(routine, file, line, switches_of(Routine::kMalloc));
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return nullptr;
  if (warns(site)) warn_of_malloc_misuse(*handle, size, align, site);
  void* memory = obtain_malloc(*handle, size, align, site);
  if (memory != nullptr) record_allocation(*handle, memory, kind::kMalloc, {1, size}, site);
  return memory;
}

extern "C" void* qk_mem_icalloc(int hid, size_t num, size_t size, int alignment, const char* file,
                                int line) {
  using namespace qk::mem;
  static constexpr char routine[] = "qk_mem_icalloc";
  ensure_started();
  if (bypasses_tracking(hid)) return untracked(system_calloc(num, size));
  const Site site(routine, file, line, switches_of(Routine::kCalloc));
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return nullptr;
  if (warns(site)) warn_of_calloc_misuse(*handle, num, size, alignment, site);
  void* memory = obtain_calloc(*handle, num, size, alignment, site);
  if (memory != nullptr) record_allocation(*handle, memory, kind::kCalloc, {num, size}, site);
  return memory;
}

extern "C" char* qk_mem_istrdup(int hid, const char* str, const char* file, int line) {
  using namespace qk::mem;
  static constexpr char routine[] = "qk_mem_istrdup";
  ensure_started();
  if (bypasses_tracking(hid)) {
    return str == nullptr ? nullptr : static_cast<char*>(untracked(::strdup(str)));
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
