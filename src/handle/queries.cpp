// Queries of one handle.
#include "accounting/handle_lookup.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/upcalls.h"
#include "table/pointer_table.h"

namespace qk::mem {
namespace {

[[nodiscard]] int frees_singly(const qk_mem_handle& handle) {
  return !is_blockmgmt(handle) || handle.blockfree != 0 ? 1 : 0;
}

[[gnu::noinline, gnu::cold]] int look_up_and_ask(int hid, const char* file, int line) {
  ensure_started();
  if (hid == QK_MEM_DATA_HANDLE && !debugging()) return 1;
  const qk_mem_handle* handle =
      look_up_handle(hid, {"qk_mem_frees_singly", file, line, global_switches()});
  return handle == nullptr ? 0 : frees_singly(*handle);
}

}  // namespace
}  // namespace qk::mem

extern "C" int qk_mem_is_recorded(int hid, const void* ptr, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  qk_mem_handle* handle =
      look_up_handle(hid, CallContext("qk_mem_is_recorded", file, line, global_switches()));
  return handle != nullptr && find_pointer(*handle, ptr) ? 1 : 0;
}

/**
 * If the start-up could not create the data handle, its number goes to the program's next handle,
 * of any kind. With nothing configured, the system's allocator still serves that number.
 */
extern "C" int qk_mem_frees_singly(int hid, const char* file, int line) {
  using namespace qk::mem;
  const qk_mem_handle* handle = hid == QK_MEM_DATA_HANDLE ? nullptr : find_handle_fast(hid);
  return handle != nullptr ? frees_singly(*handle) : look_up_and_ask(hid, file, line);
}

extern "C" size_t qk_mem_isize(int hid, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const CallContext context("qk_mem_isize", file, line, global_switches());
  const qk_mem_handle* handle = look_up_handle(hid, context);
  return handle == nullptr ? static_cast<size_t>(-1) : qk::load(handle->amount);
}
