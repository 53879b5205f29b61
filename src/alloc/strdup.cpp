// strdup on a handle.
#include <cstring>

#include "accounting/pieces.h"
#include "alloc/shared_steps.h"
#include "alloc/unrecorded.h"
#include "check/new_block.h"
#include "check/report/look.h"
#include "core/roads.h"
#include "diag/log.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

void warn_of_null(const CallContext& context) {
  qk_mem_write_log("   %s: WARNING: strdup of NULL pointer at %s:%d\n", context.routine,
                   context.file(), context.line);
}

/** Bytes of a string and its terminator as the record shows them: their low 32 bits. */
std::size_t recorded_size(const char* str) {
  return static_cast<std::uint32_t>(std::strlen(str) + 1);
}

check::NewBlock copy_to_piece(qk_mem_handle& handle, const char* str, const CallContext& context) {
  const std::size_t size = std::strlen(str) + 1;
  // A piece is only as large as its record says, so one of more than 32 bits can't be had.
  const check::NewBlock piece =
      allocate_piece(handle, size > UINT32_MAX ? SIZE_MAX : size, 1, context);
  if (piece.address != nullptr) std::memcpy(piece.address, str, size);
  return piece;
}

check::NewBlock copy_to_system_memory(const qk_mem_handle& handle, const char* str,
                                      std::size_t size, const CallContext& context) {
  const check::NewBlock copy = check::copy_of(handle, str);
  if (copy.address == nullptr) {
    report_failure(context, "strdup of %zu at %s:%d failed", size, context.file(), context.line);
  }
  return copy;
}

void* strdup_on_handle(qk_mem_handle& handle, const char* str, const CallContext& context) {
  const std::size_t size = recorded_size(str);
  const check::NewBlock copy = is_blockmgmt(handle)
                                   ? copy_to_piece(handle, str, context)
                                   : copy_to_system_memory(handle, str, size, context);
  if (copy.address == nullptr) return nullptr;
  return record_allocation(handle, copy, kind::kStrdup, {1, size}, context);
}

/** Null for null. */
char* copy_untracked(const char* str) {
  return str == nullptr ? nullptr : static_cast<char*>(untracked(user_memory::copy_of(str)));
}

}  // namespace
}  // namespace qk::mem

extern "C" char* qk_mem_istrdup(int hid, const char* str, const char* file, int line) {
  using namespace qk::mem;
  if (bypasses_tracking_fast(hid)) return copy_untracked(str);
  ensure_started();
  const check::DueLook due_look;
  const CallContext context(Routine::kStrdup, file, line);
  if (bypasses_tracking(hid)) {
    qk_mem_handle* const watched = watched_data_handle();
    if (watched == nullptr || str == nullptr) return copy_untracked(str);
    return static_cast<char*>(
        note_direct(*watched, check::copy_of(*watched, str), std::strlen(str) + 1, context));
  }
  qk_mem_handle* handle = look_up_handle(hid, context);
  if (handle == nullptr) return nullptr;
  if (str == nullptr) {
    if (checks_misuse(context)) warn_of_null(context);
    return nullptr;
  }
  return static_cast<char*>(strdup_on_handle(*handle, str, context));
}
