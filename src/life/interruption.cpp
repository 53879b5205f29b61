#include "life/interruption.h"

#include <malloc.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <mutex>

#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/log.h"

namespace qk::mem {
namespace {

/**
 * Whether the thread holds a lock of the library. Looking at the handles takes the registry's lock;
 * if another thread has it, the answer is yes, which only costs another attempt.
 */
bool holds_a_lock() {
  if (Qk_mem_mtx.held() || holds_log() || Qk_mem_error.held()) return true;
  const std::unique_lock lock(Qk_mem_mtx, std::try_to_lock);
  if (!lock.owns_lock()) return true;
  assert_registry_held();
  bool held = false;
  for_each_handle([&held](const qk_mem_handle& handle) {
    if (handle.mtx != nullptr && handle.mtx->held()) held = true;
  });
  return held;
}

template <class Function>
std::uintptr_t start_of(Function* function) {
  return reinterpret_cast<std::uintptr_t>(function);
}

/** Whether a function of the allocator, which may hold its locks, starts at an address. */
bool is_allocator(std::uintptr_t start) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  const std::uintptr_t functions[] = {
      start_of(&std::malloc),        start_of(&std::calloc), start_of(&std::realloc),
      start_of(&std::free),          start_of(&memalign),    start_of(&aligned_alloc),
      start_of(&posix_memalign),     start_of(&mallinfo),    start_of(&malloc_trim),
      start_of(&malloc_usable_size), start_of(&fork)};
#pragma GCC diagnostic pop
  return std::find(std::begin(functions), std::end(functions), start) != std::end(functions);
}

constexpr int kMostFrames = 200;

struct Search {
  int frames = 0;
  bool found = false;
};

_Unwind_Reason_Code look_at(_Unwind_Context* context, void* data) {
  auto& search = *static_cast<Search*>(data);
  search.found = is_allocator(_Unwind_GetRegionStart(context));
  const bool goes_on = !search.found && ++search.frames < kMostFrames;
  return goes_on ? _URC_NO_REASON : _URC_NORMAL_STOP;
}

/** Walks up the stack, through the signal's frame, with the tables that exceptions use. */
bool is_in_allocator() {
  Search search;
  _Unwind_Backtrace(look_at, &search);
  return search.found;
}

}  // namespace

bool interrupts_something() { return holds_a_lock() || is_in_allocator(); }

}  // namespace qk::mem
