#include "support/unwinder.h"

#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include "support/keep_errno.h"
#include "support/load_library.h"
#include "support/modules.h"
#include "support/text.h"

namespace qk {
namespace {

struct Walk {
  void** addresses;
  int most;
  int count;
};

_Unwind_Reason_Code note_frame(_Unwind_Context* context, void* data) {
  Walk& walk = *static_cast<Walk*>(data);
  if (walk.count == walk.most) return _URC_END_OF_STACK;
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  walk.addresses[walk.count++] = reinterpret_cast<void*>(_Unwind_GetIP(context));
  return _URC_NO_REASON;
}

int walk_by_runtime(void** addresses, int most) {
  Walk walk = {addresses, most, 0};
  _Unwind_Backtrace(note_frame, &walk);
  return walk.count;
}

constinit std::atomic<const Unwinder*> unwinder_in_use{nullptr};

/** Set before the unwinder. Empty if the library is part of the program or of another library. */
constinit AddressRange own_code = {};

/** With another TLS model, a thread's first use could allocate. */
[[gnu::tls_model("initial-exec")]] constinit thread_local bool is_capturing = false;

/** The code of this library's own module. One that contains the library has other code as well. */
AddressRange find_own_code() {
  const Module module = module_with(reinterpret_cast<std::uintptr_t>(&capture_stack));
  const std::string_view file = file_name_only(module.path);
  return file.starts_with("libqkmem.so") ? module.code : AddressRange{};
}

/** Frames that are walked on top of those asked for: this file's and the library's. */
constexpr int kOwnFrames = 8;

/** The first frames are of the unwinder and of this file, which `caller` called. */
int skip_to_caller(void* const* addresses, int count, const void* caller) {
  void* const* const end = addresses + std::min(count, kOwnFrames);
  void* const* const found = std::find(addresses, end, caller);
  return found == end ? 0 : static_cast<int>(found - addresses);
}

std::uintptr_t number_of(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

/** A return address can be the first one behind the code that has the call. */
bool is_own(const void* return_address) { return own_code.has(number_of(return_address) - 1); }

int walk_from(const void* caller, const Unwinder& unwinder, std::uintptr_t* frames, int most) {
  void* addresses[kMostFrames + kOwnFrames];
  int count = unwinder.walk(addresses, most + kOwnFrames);
  while (count > 0 && addresses[count - 1] == nullptr) --count;  // the end of the stack
  int first = skip_to_caller(addresses, count, caller);
  while (first < count && is_own(addresses[first])) ++first;
  const int kept = std::clamp(count - first, 0, most);
  std::transform(addresses + first, addresses + first + kept, frames, number_of);
  return kept;
}

}  // namespace

const Unwinder kRuntimeUnwinder = {"the C++ run-time", walk_by_runtime};

const Unwinder& load_unwinder() noexcept {
  // libunwind locks a mutex when a thread ends. The thread sanitizer then no longer knows the
  // thread, and crashes.
  if (process_has("__tsan_init")) return kRuntimeUnwinder;
  int (*walk)(void**, int) = nullptr;
  void* const library = load_library("libunwind.so.8");
  if (library == nullptr || !find_function(library, "unw_backtrace", walk)) return kRuntimeUnwinder;
  static const Unwinder found = {"libunwind", walk};
  return found;
}

void prepare_stacks(const Unwinder& unwinder) noexcept {
  if (unwinder_in_use.load(std::memory_order_relaxed) == nullptr) own_code = find_own_code();
  unwinder_in_use.store(&unwinder, std::memory_order_release);
  std::uintptr_t frames[kMostFrames];
  (void)capture_stack(frames, kMostFrames);
}

bool stacks_leave_library_out() noexcept { return own_code.end != 0; }

const char* unwinder_name() noexcept {
  const Unwinder* const unwinder = unwinder_in_use.load(std::memory_order_acquire);
  return unwinder == nullptr ? "none" : unwinder->name;
}

[[gnu::noinline]] int capture_stack(std::uintptr_t* frames, int most) noexcept {
  const Unwinder* const unwinder = unwinder_in_use.load(std::memory_order_acquire);
  if (unwinder == nullptr || is_capturing || most <= 0) return 0;
  const KeepErrno keep;
  is_capturing = true;
  const int count =
      walk_from(__builtin_return_address(0), *unwinder, frames, std::min(most, kMostFrames));
  is_capturing = false;
  return count;
}

}  // namespace qk
