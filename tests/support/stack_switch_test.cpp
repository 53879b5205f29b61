#include "support/stack_switch.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace {

alignas(16) std::array<char, 65536> stack;

bool is_on_stack(const void* address) {
  const auto number = reinterpret_cast<std::uintptr_t>(address);
  const auto begin = reinterpret_cast<std::uintptr_t>(stack.data());
  return number >= begin && number < begin + stack.size();
}

/** What a called function has seen. */
struct Seen {
  bool was_on_stack = false;
  bool was_aligned = false;
  int calls = 0;
};

void look(void* argument) {
  alignas(16) volatile char local[32] = {};
  auto& seen = *static_cast<Seen*>(argument);
  seen.was_on_stack = is_on_stack(__builtin_frame_address(0));
  seen.was_aligned = reinterpret_cast<std::uintptr_t>(local) % 16 == 0;
  ++seen.calls;
}

TEST(CallOnStack, RunsTheFunctionThereAndReturns) {
  for (const auto call : {qk::call_on_stack, qk::call_on_stack_portably}) {
    Seen seen;
    double kept = 1.5;
    for (int i = 1; i <= 3; ++i) {
      call(stack.data(), stack.size(), look, &seen);
      kept *= 2;
      EXPECT_TRUE(seen.was_on_stack);
      EXPECT_TRUE(seen.was_aligned);
      EXPECT_EQ(seen.calls, i);
      EXPECT_FALSE(is_on_stack(__builtin_frame_address(0)));
    }
    EXPECT_EQ(kept, 12.0);
  }
}

}  // namespace
