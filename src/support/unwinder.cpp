#include "support/unwinder.h"

#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include "support/keep_errno.h"
#include "support/load_library.h"
#include "support/modules.h"
#include "support/text.h"

/** Of the C++ run-time, which doesn't declare it: the unwinding table of an address, or null. */
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[gnu::weak]] const void* _Unwind_Find_FDE(void* address, void* bases);

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

/**
 * A static program registers its unwinding tables while it starts, after constructors that have a
 * priority. Until then the run-time would end the process.
 */
bool has_unwinding_tables() {
  constinit static std::atomic<bool> is_known = false;
  if (is_known.load(std::memory_order_relaxed) || _Unwind_Find_FDE == nullptr) return true;
  void* bases[3] = {};
  if (_Unwind_Find_FDE(reinterpret_cast<void*>(&capture_stack), bases) == nullptr) return false;
  is_known.store(true, std::memory_order_relaxed);
  return true;
}

int walk_by_runtime(void** addresses, int most) {
  if (!has_unwinding_tables()) return 0;
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

/** As many as there are up to the entry on the library's short ways, if the compiler optimises. */
constexpr int kFramesToEntry = 3;

/** Finds where a stack begins: -1 if the address is not among the first ones. */
int find_among_first(void* const* addresses, int count, const void* address) {
  void* const* const end = addresses + std::min(count, kOwnFrames);
  void* const* const found = std::find(addresses, end, address);
  return found == end ? -1 : static_cast<int>(found - addresses);
}

std::uintptr_t number_of(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

/** A return address can be the first one behind the code that has the call. */
bool is_own(const void* return_address) { return own_code.has(number_of(return_address) - 1); }

/** Addresses of a stack, the first ones in this file. */
struct Addresses {
  void* all[kMostFrames + kOwnFrames];
  int count;
};

[[gnu::always_inline]] inline void walk(const Unwinder& unwinder, int most, Addresses& addresses) {
  addresses.count = unwinder.walk(addresses.all, most);
  // The end of the stack.
  while (addresses.count > 0 && addresses.all[addresses.count - 1] == nullptr) --addresses.count;
}

/** Walks as far as it takes to have `most` frames from the entry or the caller on. */
[[gnu::always_inline]] inline int walk_to(const void* entry, const void* caller,
                                          const Unwinder& unwinder, int most,
                                          Addresses& addresses) {
  if (entry != nullptr) {
    walk(unwinder, most + kFramesToEntry, addresses);
    const int first = find_among_first(addresses.all, addresses.count, entry);
    if (first >= 0 && !is_own(addresses.all[first])) return first;
  }
  walk(unwinder, most + kOwnFrames, addresses);
  return std::max(0, find_among_first(addresses.all, addresses.count, caller));
}

[[gnu::always_inline]] inline int walk_from(const void* entry, const void* caller,
                                            const Unwinder& unwinder, std::uintptr_t* frames,
                                            int most) {
  Addresses addresses;
  int first = walk_to(entry, caller, unwinder, most, addresses);
  while (first < addresses.count && is_own(addresses.all[first])) ++first;
  const int kept = std::clamp(addresses.count - first, 0, most);
  std::transform(addresses.all + first, addresses.all + first + kept, frames, number_of);
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

[[gnu::noinline]] int capture_stack(std::uintptr_t* frames, int most, const void* entry) noexcept {
  const Unwinder* const unwinder = unwinder_in_use.load(std::memory_order_acquire);
  if (unwinder == nullptr || is_capturing || most <= 0) return 0;
  const KeepErrno keep;
  is_capturing = true;
  const int count =
      walk_from(entry, __builtin_return_address(0), *unwinder, frames, std::min(most, kMostFrames));
  is_capturing = false;
  return count;
}

}  // namespace qk
