// What the program has forgotten on a handle, told before its owner deletes it.
#include "core/handle_array.h"
#include "diag/call_context.h"
#include "profile/report/misuse.h"
#include "profile/state.h"

extern "C" void qk_mem_tell_forgotten(int hid, const char* file, int line) {
  using namespace qk::mem;
  if (!profile::is_on()) return;
  const qk_mem_handle* const handle = find_handle(hid);
  if (handle == nullptr) return;
  profile::tell_of_forgotten_memory(*handle, CallContext(Routine::kDelHandle, file, line));
}
