#include "profile/stacks.h"

#include <algorithm>

#include "profile/state.h"
#include "support/mtx_lock.h"
#include "support/shared_variable.h"
#include "support/unwinder.h"

namespace qk::mem::profile {

constinit qk::ModuleList modules;

namespace {

constinit StackTable stacks(arena);
constinit std::uint32_t stack_depth = 0;
constinit std::uint8_t is_prepared = 0;
constinit std::uint8_t uses_slow_unwinder = 0;

/**
 * In a program or a plug-in that contains the library, stacks begin with frames of it, which can't
 * be told from others without their names. None of them follow an entry, if the calls that lead to
 * it are jumps.
 */
constinit std::uint32_t own_frames = 0;
constinit std::uint32_t own_frames_at_entry = 0;

/** The most that lead from an entry point to the capture of the stack. */
constexpr std::uint32_t kMostOwnFrames = 12;

/**
 * A stack that was not seen before can lead through modules that were not either. If one lies where
 * another one was, libunwind would mistake it for that.
 */
void look_for_new_modules() {
  modules.refresh();
  if (modules.reuses_addresses() && !qk::set_flag(uses_slow_unwinder)) {
    qk::prepare_stacks(qk::kRuntimeUnwinder);
  }
}

[[gnu::noinline]] std::uint32_t add_stack(const Stack& stack) {
  look_for_new_modules();
  const qk::MtxLock lock(growth_lock);
  return stacks.intern(stack).value_or(0);
}

[[gnu::noipa, gnu::noinline]] const void* caller_of(int /*distinction*/) {
  return __builtin_return_address(0);
}

[[gnu::noipa, gnu::noinline]] const void* caller_of_one() { return caller_of(1); }
[[gnu::noipa, gnu::noinline]] const void* caller_of_other() { return caller_of(2); }

[[gnu::noipa, gnu::noinline]] const void* return_address_in(const void* (*function)()) {
  const void* const address = function();
  asm volatile("");  // keeps this call from being a jump
  return address;
}

/** Whether the compiler has made jumps of calls that are a function's last. */
bool last_calls_are_jumps() {
  return return_address_in(caller_of_one) == return_address_in(caller_of_other);
}

}  // namespace

void prepare_stack_capture() {
  if (qk::set_flag(is_prepared)) return;
  modules.refresh();
  qk::prepare_stacks(qk::load_unwinder());
  if (qk::stacks_leave_library_out()) return;
  own_frames = kMostOwnFrames;
  own_frames_at_entry = last_calls_are_jumps() ? 0 : kMostOwnFrames;
}

void set_stack_depth(std::uint32_t depth) {
  qk::store(stack_depth, depth);
  if (depth == 0) {
    qk::clear_bits(reasons_for_attention, attention::kStacks);
  } else {
    qk::set_bits(reasons_for_attention, attention::kStacks);
  }
}

int frames_to_capture(const void* entry) {
  const std::uint32_t depth = qk::load(stack_depth);
  if (depth == 0) return 0;
  const std::uint32_t own = entry == nullptr ? own_frames : own_frames_at_entry;
  return static_cast<int>(std::min<std::uint32_t>(depth + own, qk::kMostFrames));
}

std::uint32_t number_of_stack(const Stack& stack) {
  const std::uint32_t number = stacks.find(stack);
  return number != 0 || stack.depth == 0 ? number : add_stack(stack);
}

Stack stack_numbered(std::uint32_t number) { return stacks.stack(number); }

}  // namespace qk::mem::profile
