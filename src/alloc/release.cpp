// Memory that goes back: free.
#include "alloc/entry.h"
#include "core/system_memory.h"
#include "diag/log.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

/** Warns of what is wrong with the pointer itself; the result is its record. */
std::optional<qk_mem_ptr> warn_of_pointer(qk_mem_handle& handle, const void* ptr,
                                          const Site& site) {
  if (ptr == nullptr) {
    qk_mem_write_log("   %s: WARNING: free of NULL pointer at %s:%d\n", site.routine, site.file(),
                     site.line);
    return std::nullopt;
  }
  const auto record = find_pointer(handle, ptr);
  if (!record) {
    warn_not_found(site, handle.id, shown(ptr));
  } else if (is_language_made(record->kind)) {
    qk_mem_write_log("   %s: WARNING: free of new at %s:%d (allocated at %s:%d)\n", site.routine,
                     site.file(), site.line, record->file, int{record->line});
  }
  return record;
}

void warn_of_free_misuse(qk_mem_handle& handle, const void* ptr, const Site& site) {
  const auto record = warn_of_pointer(handle, ptr, site);
  const bool external = record && record->kind == kind::kExternal;
  if (is_blockmgmt(handle) && handle.blockfree == 0 && !external) {
    qk_mem_write_log("   %s: WARNING: free on handle %d with blockmgmt at %s:%d\n", site.routine,
                     handle.id, site.file(), site.line);
  }
}

/**
 * Takes the record out first and gives the memory back then: as soon as the memory is gone, another
 * thread can be given the same address and record it.
 */
std::optional<Taken> release_memory(qk_mem_handle& handle, void* ptr, const Site& site) {
  std::optional<Taken> taken;
  if (ptr != nullptr && keeps_records(handle)) {
    taken = take_pointer(handle, ptr, Totals::kDataExceptPieces);
    if (!taken && reports(site)) warn_not_found(site, handle.id, shown(ptr));
  }
  user_memory::release(ptr);
  return taken;
}

/**
 * The same on a block-managed handle, where nothing but pieces under BLOCKFREE and external memory
 * can go back by itself. Whatever stays gives no event.
 */
std::optional<Taken> release_from_blocks(qk_mem_handle& handle, void* ptr, const Site& site) {
  if (qk::load(handle.registered) == 0 && handle.blockfree == 0) return std::nullopt;
  const auto record = find_pointer(handle, ptr);
  if (!record) {
    report_unknown_piece(handle, ptr, site);
    return std::nullopt;
  }
  if (handle.blockfree == 0 && record->kind != kind::kExternal) return std::nullopt;
  const auto taken = take_pointer(handle, ptr, Totals::kDataExceptPieces);
  if (taken) release_piece(handle, ptr, taken->record, site);
  return taken;
}

void announce_free(const qk_mem_handle& handle, const qk_mem_ptr& record, const Site& site) {
  next_seq();
  announce_released(lines::kFreed, site, handle.id, free_letter(handle), record,
                    traced_change(handle, release_of(record)));
  dump_control_blocks(*site.switches);
}

[[gnu::noinline]] void free_on_handle(int hid, void* ptr, const char* file, int line) {
  ensure_started();
  if (bypasses_tracking(hid)) {
    user_memory::release(ptr);
    return;
  }
  const Site site("qk_mem_ifree", file, line, switches_of(Routine::kFree));
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return;
  if (warns(site)) warn_of_free_misuse(*handle, ptr, site);
  const auto taken = is_blockmgmt(*handle) ? release_from_blocks(*handle, ptr, site)
                                           : release_memory(*handle, ptr, site);
  if (taken) announce_free(*handle, taken->record, site);
}

template <class Lock>
[[gnu::noinline]] void free_quickly(qk_mem_handle& handle, void* ptr, const char* file, int line) {
  if (!take_quickly<Lock>(handle, ptr, Totals::kDataExceptPieces)) {
    free_on_handle(handle.id, ptr, file, line);
    return;
  }
  user_memory::release(ptr);
  next_seq();
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_ifree(int hid, void* ptr, const char* file, int line) {
  using namespace qk::mem;
  if (bypasses_at_once(hid)) {
    user_memory::release(ptr);
    return;
  }
  qk_mem_handle* handle = quiet_handle(hid, Routine::kFree);
  if (handle == nullptr || !is_tracking(*handle)) {
    free_on_handle(hid, ptr, file, line);
  } else if (handle->mtx == nullptr) {
    free_quickly<NoLock>(*handle, ptr, file, line);
  } else {
    free_quickly<HandleLock>(*handle, ptr, file, line);
  }
}
