// Generations, by which a number that was given to a new handle is told from the deleted one.
#include "accounting/handle_lookup.h"
#include "core/handle_array.h"
#include "core/upcalls.h"

namespace qk::mem {
namespace {

[[nodiscard]] const qk_mem_handle* find_any_handle(int hid) {
  const qk_mem_handle* handle = find_handle_fast(hid);
  return handle != nullptr ? handle : find_handle(hid);
}

Routine routine_of(int call) {
  switch (call) {
    case QK_MEM_CALL_MALLOC:
      return Routine::kMalloc;
    case QK_MEM_CALL_FREE:
      return Routine::kFree;
    case QK_MEM_CALL_REGISTER:
      return Routine::kRegister;
    case QK_MEM_CALL_DEREGISTER:
      return Routine::kDeregister;
    case QK_MEM_CALL_CLEAR_HANDLE:
      return Routine::kClearHandle;
    default:
      return Routine::kDelHandle;
  }
}

[[gnu::noinline, gnu::cold]] int refuse(int hid, int call, const char* file, int line) {
  report_deleted_handle(hid, CallContext(routine_of(call), file, line));
  return 0;
}

}  // namespace
}  // namespace qk::mem

extern "C" uint32_t qk_mem_generation(int hid) {
  using namespace qk::mem;
  ensure_started();
  const qk_mem_handle* handle = find_any_handle(hid);
  return handle == nullptr ? 0 : handle->generation;
}

extern "C" int qk_mem_is_current(int hid, uint32_t generation, int call, const char* file,
                                 int line) {
  using namespace qk::mem;
  if (generation == 0) return 1;
  const qk_mem_handle* handle = find_any_handle(hid);
  if (handle != nullptr && handle->generation == generation) [[likely]]
    return 1;
  return refuse(hid, call, file, line);
}
