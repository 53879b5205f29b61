// Generations, by which a number that was given to a new handle is told from the deleted one.
#include "accounting/handle_lookup.h"
#include "accounting/walks.h"
#include "core/handle_array.h"
#include "core/upcalls.h"

namespace qk::mem {
namespace {

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

/** Whether a number has the handle that a caller means, who may not know the generation. */
[[nodiscard]] bool is_of_generation(const qk_mem_handle* handle, std::uint32_t generation) {
  return generation == 0 || (handle != nullptr && handle->generation == generation);
}

[[gnu::cold]] int refuse(int hid, int call, const char* file, int line) {
  report_deleted_handle(hid, CallContext(routine_of(call), file, line));
  return 0;
}

/** The complete check, with a note on the handle that containers use it. */
[[gnu::noinline, gnu::cold]] int check_generation(int hid, std::uint32_t generation, int call,
                                                  const char* file, int line) {
  qk_mem_handle* handle = find_handle(hid);
  if (!is_of_generation(handle, generation)) return refuse(hid, call, file, line);
  if (handle != nullptr && call == QK_MEM_CALL_MALLOC) qk::store(handle->serves_containers, 1);
  return 1;
}

/** Whether check_generation() has nothing to note for a call. */
[[nodiscard]] bool is_noted(const qk_mem_handle& handle, int call) {
  return call != QK_MEM_CALL_MALLOC || qk::load(handle.serves_containers) != 0;
}

}  // namespace
}  // namespace qk::mem

extern "C" uint32_t qk_mem_generation(int hid) {
  using namespace qk::mem;
  ensure_started();
  const qk_mem_handle* handle = find_handle(hid);
  return handle == nullptr ? 0 : handle->generation;
}

extern "C" int qk_mem_is_current(int hid, uint32_t generation, int call, const char* file,
                                 int line) {
  using namespace qk::mem;
  const qk_mem_handle* handle = find_handle_fast(hid);
  if (handle != nullptr && is_of_generation(handle, generation) && is_noted(*handle, call))
      [[likely]] {
    return 1;
  }
  return check_generation(hid, generation, call, file, line);
}

extern "C" int qk_mem_may_destroy(int hid, uint32_t generation, const void* object,
                                  const char* file, int line) {
  using namespace qk::mem;
  qk_mem_handle* handle = find_handle(hid);
  if (!is_of_generation(handle, generation)) {
    return refuse(hid, QK_MEM_CALL_DEREGISTER, file, line);
  }
  return handle == nullptr || !is_walked(*handle) || !was_destroyed_by_walk(*handle, object) ? 1
                                                                                             : 0;
}
